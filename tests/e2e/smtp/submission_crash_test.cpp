// Workers that are killed, and disks that fail: no message is lost, and one that may have gone out
// twice is named.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "tests/e2e/smtp/submission_test.h"
#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/failing_ops.h"

namespace {

using namespace host::delivery;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using testing_host::FailingOps;
using testing_host::kFiled;
using testing_host::SmtpSink;
using testing_host::SpoolBench;

constexpr unsigned int kMostCalls = 200;

// Ends the process at its n-th call, before the call does anything.
class KillingOps final : public host::core::FileOps {
 public:
  explicit KillingOps(unsigned int call) : left_(call) {}

  int openFolder(const std::string& path, int parent) override {
    count();
    return FileOps::openFolder(path, parent);
  }
  int openFile(int folder, const std::string& name, int flags) override {
    count();
    return FileOps::openFile(folder, name, flags);
  }
  ssize_t read(int file, char* data, std::size_t size) override {
    count();
    return FileOps::read(file, data, size);
  }
  ssize_t write(int file, const char* data, std::size_t size) override {
    count();
    return FileOps::write(file, data, size);
  }
  int sync(int descriptor) override {
    count();
    return FileOps::sync(descriptor);
  }
  int unlink(int folder, const std::string& name) override {
    count();
    return FileOps::unlink(folder, name);
  }

 private:
  void count() {
    if (--left_ == 0) ::kill(::getpid(), SIGKILL);
  }
  unsigned int left_;
};

TEST(SubmissionCrash, KilledAtAnyPointItLosesNothingAndSaysWhatMayBeDoubled) {
  bool sawDoubled = false;
  for (unsigned int call = 1; call < kMostCalls; ++call) {
    SmtpSink sink;
    SpoolBench bench(&sink);
    bench.file();
    const int ended = testing_host::inChild([&] {
      KillingOps ops(call);
      Spool spool(ops);
      if (spool.open(bench.folder / "spool") != AdapterError::None) return 2;
      SubmissionWorker worker(spool, bench.settings, bench.keys, nullptr);
      return worker.runOnce(kFiled).sent == 1 ? 0 : 3;
    });
    const std::size_t before = sink.messages().size();
    ASSERT_TRUE(ended == 0 || ended == 128 + SIGKILL) << "call " << call << ": " << ended;
    const SubmissionCounts counts = bench.runOnce(kFiled + 60);
    const std::size_t after = sink.messages().size();
    const auto failures = bench.log.takeLines(1);
    ASSERT_GE(after, 1u) << "lost at call " << call;
    ASSERT_EQ(after, before + counts.sent);
    EXPECT_EQ(bench.entries(), 0u);
    if (after > 1) {
      sawDoubled = true;
      EXPECT_THAT(failures, Contains(HasSubstr("possibly doubled"))) << call;
    }
    if (ended == 0) {
      EXPECT_EQ(after, 1u);
      EXPECT_TRUE(sawDoubled) << "the moment between the server's answer and ours was missed";
      return;
    }
  }
  FAIL() << "never got through";
}

TEST(SubmissionCrash, FailingDiskLosesNothing) {
  for (unsigned int call = 1; call < kMostCalls; ++call) {
    SmtpSink sink;
    FailingOps ops;
    SpoolBench bench(&sink, ops);
    bench.file();
    ops.failCall(call, EIO);
    bench.runOnce(kFiled);
    const bool fired = ops.fired();
    ops.failCall(0, 0);
    const auto failures = bench.log.takeLines(1);
    bench.runOnce(kFiled + 60);
    const auto laterFailures = bench.log.takeLines(1);
    ASSERT_GE(sink.messages().size(), 1u) << "lost at call " << call;
    EXPECT_EQ(bench.entries(), 0u) << call;
    if (sink.messages().size() > 1) {
      EXPECT_THAT(laterFailures, Contains(HasSubstr("possibly doubled"))) << call;
    }
    if (!fired) {
      EXPECT_THAT(failures, IsEmpty());
      return;
    }
  }
  FAIL() << "never got through";
}

// A folder in which nothing can be removed.
class KeepingOps final : public host::core::FileOps {
 public:
  bool keeps = true;
  int unlink(int folder, const std::string& name) override {
    return keeps ? -EROFS : FileOps::unlink(folder, name);
  }
};

TEST(SubmissionCrash, WhatWasSentAndCannotBeRemovedIsNotSentAgain) {
  SmtpSink sink;
  KeepingOps ops;
  SpoolBench bench(&sink, ops);
  bench.file();
  EXPECT_EQ(bench.runOnce(kFiled).sent, 1u);
  EXPECT_THAT(bench.log.takeLines(1), Contains(HasSubstr("cannot be removed")));
  EXPECT_EQ(bench.entries(), 1u);
  ops.keeps = false;
  EXPECT_EQ(bench.runOnce(kFiled + 1).sent, 0u);
  EXPECT_EQ(bench.entries(), 0u);
  EXPECT_THAT(sink.messages(), SizeIs(1));
}

TEST(SubmissionCrash, LostAnswerIsNamedAtTheNextAttempt) {
  SmtpSink sink(R"({"at": {"end": {"do": "hangup", "times": 1}}})");
  SpoolBench bench(&sink);
  const std::string id = bench.file();
  EXPECT_EQ(bench.runOnce(kFiled).deferred, 1u);
  EXPECT_TRUE(bench.show(id).state.isPossiblyDoubled());
  EXPECT_THAT(bench.log.takeLines(1), IsEmpty());
  EXPECT_EQ(bench.runOnce(kFiled + 120).sent, 1u);
  EXPECT_THAT(bench.log.takeLines(1), Contains(HasSubstr("possibly doubled")));
}

TEST(SubmissionCrash, MessageThatEndsTheProcessIsNotTriedAllTheTime) {
  SmtpSink sink;
  SpoolBench bench(&sink);
  const std::string id = bench.file();
  ASSERT_EQ(bench.spool.appendLog(
                id, writeSpoolEvent({SpoolEvent::Kind::Attempt, kFiled, 0, "", 0, false})),
            AdapterError::None);
  EXPECT_EQ(bench.runOnce(kFiled + 59).waiting, 1u);
  EXPECT_EQ(bench.runOnce(kFiled + 60).sent, 1u);
  EXPECT_THAT(bench.log.takeLines(1), Contains(HasSubstr("possibly doubled")));
}

}  // namespace
