// Many threads that file at once under one folder, on the real store.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using namespace host::delivery;
using testing_host::Answer;
using testing_host::archive;
using testing_host::contentOf;
using testing_host::filesBelow;
using testing_host::PlainMessage;
using testing_host::quarantine;
using testing_host::TempFolder;
using testing_host::Tokens;

constexpr std::size_t kThreads = 6;

class FilingThreads : public ::testing::Test {
 protected:
  FilingThreads() {
    std::filesystem::create_directory(folder_);
    EXPECT_EQ(state_.open(temp_ / "state"), AdapterError::None);
  }

  // Runs `work` with the number of each thread, all at once.
  template <class Work>
  void atOnce(Work work) {
    std::atomic<std::size_t> ready = 0;
    std::vector<std::jthread> threads;
    for (std::size_t number = 0; number < kThreads; ++number) {
      threads.emplace_back([&ready, &work, number] {
        ++ready;
        while (ready < kThreads) std::this_thread::yield();
        work(number);
      });
    }
  }

  std::vector<host::store::IndexEntry> rows() {
    std::vector<host::store::IndexEntry> entries;
    EXPECT_TRUE(state_.store()->list({{}, {}, 0, 1000}, entries).ok());
    return entries;
  }

  TempFolder temp_;
  std::string folder_ = temp_ / "q";
  DeliveryState state_;
};

TEST_F(FilingThreads, FileEachMessageOnceWithItsRow) {
  constexpr std::size_t kMessages = 10;
  std::atomic<std::size_t> filed = 0;
  atOnce([&](std::size_t thread) {
    LocalAdapter adapter(state_);
    for (std::size_t number = 0; number < kMessages; ++number) {
      const std::string name = std::to_string(thread) + "x" + std::to_string(number);
      PlainMessage message("Subject: " + name + "\r\n\r\n");
      // All of them in the same folders, which nobody has made yet.
      message.setId("same" + name);
      message.setEnvelope(name + "@example.org", {"b@example.org"});
      const bool archives = number % 2 == 0;
      const Answer answer = archives ? archive(adapter, message, folder_, "Sales")
                                     : quarantine(adapter, message, folder_);
      if (answer.ok()) ++filed;
    }
  });
  EXPECT_EQ(filed, kThreads * kMessages);
  std::set<std::string> paths;
  for (const auto& row : rows()) {
    paths.insert(row.path);
    EXPECT_EQ(contentOf(row.path), "Subject: " + row.messageId.substr(4) + "\r\n\r\n");
    EXPECT_EQ(row.sender, row.messageId.substr(4) + "@example.org");
  }
  EXPECT_EQ(paths.size(), kThreads * kMessages);
  EXPECT_EQ(filesBelow(folder_).size(), kThreads * kMessages);
}

TEST_F(FilingThreads, GiveCopiesOfOneNameDifferentNumbers) {
  std::array<std::string, kThreads> paths;
  atOnce([&](std::size_t thread) {
    LocalAdapter adapter(state_);
    PlainMessage message;
    const Answer answer = quarantine(adapter, message, folder_);
    EXPECT_TRUE(answer.ok());
    paths[thread] = answer.path;
  });
  EXPECT_EQ(std::set<std::string>(paths.begin(), paths.end()).size(), kThreads);
  EXPECT_EQ(rows().size(), kThreads);
}

// A sender that gives up and tries again while the first attempt is still under way.
TEST_F(FilingThreads, LetOneOfManyAttemptsFileTheMessage) {
  std::array<Answer, kThreads> answers;
  atOnce([&](std::size_t thread) {
    PlainMessage message;
    message.setId("attempt" + std::to_string(thread));
    message.setEnvelope("a@example.org", {"b@example.org"});
    LocalAdapter adapter(state_);
    const Tokens tokens;
    EXPECT_EQ(adapter.beginMessage(message, message.bytes(), tokens), AdapterError::None);
    EXPECT_EQ(adapter.beginAction(15, 0, "7"), AdapterError::None);
    answers[thread] = quarantine(adapter, message, folder_);
    EXPECT_EQ(adapter.finalAnswer(FinalAnswer::TemporaryFailure), AdapterError::None);
  });
  std::set<std::string> paths;
  for (const Answer& answer : answers) {
    if (answer.ok()) {
      paths.insert(answer.path);
    } else {
      EXPECT_EQ(answer.error, AdapterError::UnderWay);
    }
  }
  EXPECT_EQ(paths.size(), 1u);
  EXPECT_EQ(rows().size(), 1u);
  EXPECT_EQ(filesBelow(folder_).size(), 1u);
}

}  // namespace
