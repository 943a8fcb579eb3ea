#include "gateway/milter/message_scan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/engine/filing_folders.h"
#include "gateway/engine/library_start.h"
#include "gateway/milter/file_policy.h"
#include "tests/unit/gateway/policy_texts.h"

namespace gateway::milter {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

fs::path newFolder() {
  std::string name = fs::temp_directory_path() / "message_scan.XXXXXX";
  return ::mkdtemp(name.data());
}

/// The library starts once for the process.
host::core::ProcessLog& startedLog(const fs::path& folder) {
  static host::core::ProcessLog* log = [&] {
    static host::core::ProcessLog made({.level = 0});
    static host::core::IniSettings settings;
    settings.override("general", "queue_archive", folder / "archive");
    settings.override("general", "queue_quarantine", folder / "quarantine");
    engine::startLibrary(settings, made);
    return &made;
  }();
  return *log;
}

class MessageScanTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { base() = newFolder(); }
  static void TearDownTestSuite() { fs::remove_all(base()); }

  MessageScanTest() : log_(startedLog(base())), keys_(folder_ / "keys") {
    EXPECT_EQ(state_.open(folder_ / "state"), host::delivery::AdapterError::None);
  }
  ~MessageScanTest() override { fs::remove_all(folder_); }

  void use(const char* policy) {
    const auto snapshot = policy::snapshotOf(policy);
    host::core::IniSettings settings;
    settings.override("general", "queue_archive", base() / "archive");
    settings.override("general", "queue_quarantine", base() / "quarantine");
    std::vector<std::string> notes;
    EXPECT_EQ(engine::prepareFilingFolders(*snapshot, settings, state_, notes), "");
    policy_.begin({.snapshot = snapshot});
  }

  /// Runs a message of this header and a body of one line.
  MessageScan& scan(const std::vector<HeaderLine>& header, const std::string& body = "body\r\n") {
    scan_.reset();
    collected_.emplace(settings_.limits, folder_, settings_.memoryBytes);
    collected_->setSender("<from@example.org>", {});
    collected_->addRecipient("<to@example.net>", {});
    for (const HeaderLine& line : header) collected_->addHeader(line.name, line.value);
    collected_->addBody(body);
    const Gateway gateway{settings_, policy_, log_,   state_,  delivery_,
                          keys_,     folder_, "host", nullptr, &answers_};
    gateway_.emplace(gateway);
    scan_ = std::make_unique<MessageScan>(*gateway_, *collected_,
                                          Origin{.queueId = "QUEUE", .listener = "in"});
    scan_->run();
    return *scan_;
  }

  std::size_t archived() const {
    std::size_t count = 0;
    for (const auto& entry : fs::recursive_directory_iterator(base() / "archive")) {
      count += entry.path().extension() == ".eml" ? 1 : 0;
    }
    return count;
  }

  static fs::path& base() {
    static fs::path path;
    return path;
  }

  const fs::path folder_ = newFolder();
  host::core::ProcessLog& log_;
  MilterSettings settings_;
  host::delivery::DeliverySettings delivery_;
  host::delivery::DeliveryState state_;
  host::delivery::SealKeys keys_;
  FilePolicy policy_{"policy.yaml"};
  AnswerMarks answers_;
  std::optional<CollectedMessage> collected_;
  std::optional<Gateway> gateway_;
  std::unique_ptr<MessageScan> scan_;
};

TEST_F(MessageScanTest, WhatNothingMatchesGoesOnWithoutChanges) {
  use("rules: []\n");
  const MessageScan& done = scan({{"Subject", " s"}});
  EXPECT_EQ(done.answer().kind, Answer::Kind::Continue);
  EXPECT_TRUE(done.changes().isEmpty());
}

TEST_F(MessageScanTest, AChangeIsToldAndNothingElse) {
  use("rules: [{id: 1, when: always, actions: [{x_header: 'X-A: b'}]}]\n");
  const MessageScan& done = scan({{"Subject", " s"}});
  EXPECT_EQ(done.answer().kind, Answer::Kind::Continue);
  EXPECT_THAT(done.changes().names(), ElementsAre("insert X-A"));
}

TEST_F(MessageScanTest, AFailedActionIsATemporaryFailureWithoutChanges) {
  use("rules: [{id: 1, when: always, actions: [{x_header: 'X-A: b'}, {readdress: a@b.example}]}]");
  const MessageScan& done = scan({{"Subject", " s"}});
  EXPECT_EQ(done.answer().kind, Answer::Kind::TempFail);
  EXPECT_THAT(done.answer().text, HasSubstr("(QUEUE)"));
  EXPECT_TRUE(done.changes().isEmpty());
}

TEST_F(MessageScanTest, AnAcceptedFailureLeavesTheMessageAsItStoodBeforeTheRule) {
  use("archive_areas: [{name: journal}]\n"
      "rules:\n"
      "- {id: 1, when: always, actions: [{x_header: 'X-A: b'}]}\n"
      "- {id: 2, when: always, on_failure: accept, actions: [{x_header: 'X-B: b'}, {bcc: "
      "c@d.example}, {archive: journal}, {readdress: a@b.example}]}\n"
      "- {id: 3, when: always, actions: [{x_header: 'X-C: b'}]}\n");
  const std::size_t before = archived();
  MessageScan& done = scan({{"Subject", " accepted"}});
  EXPECT_EQ(done.answer().kind, Answer::Kind::Continue);
  EXPECT_THAT(done.changes().names(), ElementsAre("insert X-A", "insert X-C"));
  done.settle();
  EXPECT_EQ(archived(), before + 1);
  scan({{"Subject", " accepted"}}).settle();
  EXPECT_EQ(archived(), before + 2) << "the first one was settled: this is another message";
}

TEST_F(MessageScanTest, AVerdictIsTold) {
  use("rules: [{id: 1, when: always, actions: [{x_header: 'X-A: b'}], verdict: {reject: Not 100% "
      "here}}]\n");
  const MessageScan& rejected = scan({{"Subject", " s"}});
  EXPECT_EQ(rejected.answer().kind, Answer::Kind::Reject);
  EXPECT_EQ(rejected.answer().text, "Not 100% here");
  EXPECT_TRUE(rejected.changes().isEmpty());
  use("rules: [{id: 1, when: always, actions: [], verdict: {tempfail: Later}}]\n");
  const MessageScan& later = scan({{"Subject", " s"}});
  EXPECT_EQ(later.answer().kind, Answer::Kind::TempFail);
  EXPECT_EQ(later.answer().text, "Later (QUEUE)");
}

TEST_F(MessageScanTest, ARetryOfWhatARuleRefusedForNowFindsItsEffectsDone) {
  const auto refusing = [this](const char* key) {
    use((std::string("archive_areas: [{name: journal}]\n"
                     "rules: [{id: 1, when: always, actions: [{archive: journal}], verdict: {") +
         key + ": No}}]\n")
            .c_str());
  };
  refusing("tempfail");
  const std::size_t before = archived();
  scan({{"Subject", " verdict"}}).settle();
  scan({{"Subject", " verdict"}}).settle();
  EXPECT_EQ(archived(), before + 1);
  refusing("reject");
  scan({{"Subject", " verdict"}}).settle();
  EXPECT_EQ(archived(), before + 1) << "the same message with the same action";
  scan({{"Subject", " verdict"}}).settle();
  EXPECT_EQ(archived(), before + 2) << "the rejection settled the first one";
}

TEST_F(MessageScanTest, ARetryFindsDoneWhatTheFirstAttemptDid) {
  use("archive_areas: [{name: journal}]\n"
      "rules: [{id: 1, when: always, actions: [{archive: journal}, {readdress: a@b.example}]}]\n");
  const std::size_t before = archived();
  scan({{"Subject", " once"}}).settle();
  EXPECT_EQ(archived(), before + 1);
  scan({{"Subject", " once"}}).settle();
  EXPECT_EQ(archived(), before + 1) << "one copy, though the sender tried twice";
  scan({{"Subject", " other"}}).settle();
  EXPECT_EQ(archived(), before + 2);
}

TEST_F(MessageScanTest, OnlyAnAnsweredMessageWithEffectsIsMarked) {
  ASSERT_EQ(answers_.open(folder_ / "answers"), "");
  use("archive_areas: [{name: journal}]\n"
      "rules:\n"
      "- {id: 1, when: {subject: {matches: archive}}, actions: [{archive: journal}]}\n"
      "- {id: 2, when: {subject: {matches: fail}}, actions: [{readdress: a@b.example}]}\n");
  scan({{"Subject", " nothing"}}).settle();
  EXPECT_FALSE(scan_->marked());
  scan({{"Subject", " archive and fail"}}).settle();
  EXPECT_FALSE(scan_->marked()) << "the sender tries again, and finds what was done";
  scan({{"Subject", " archive"}}).settle();
  ASSERT_TRUE(scan_->marked());
  AnswerMarks next;
  ASSERT_EQ(next.open(folder_ / "answers"), "");
  EXPECT_TRUE(next.begin(*scan_->marked()));
}

TEST_F(MessageScanTest, OnlyWhatFilesSomethingInTheSpoolHasItsSenderWoken) {
  use("archive_areas: [{name: kept}]\n"
      "rules:\n- {id: 1, when: {subject: copy}, actions: [{archive: kept}]}\n"
      "- {id: 2, when: {subject: later}, actions: [{postpone: '23:59'}]}\n");
  delivery_.scan.host = "127.0.0.1";
  EXPECT_FALSE(scan({{"Subject", " s"}}).mayHaveSpooled());
  EXPECT_FALSE(scan({{"Subject", " copy"}}).mayHaveSpooled());
  const MessageScan& postponed = scan({{"Subject", " later"}});
  EXPECT_EQ(postponed.answer().kind, Answer::Kind::Discard);
  EXPECT_TRUE(postponed.mayHaveSpooled());
}

TEST_F(MessageScanTest, AMailSystemThatDoesNotTakeTheChangesGetsATemporaryFailure) {
  use("rules: [{id: 1, when: always, actions: [{x_header: 'X-A: b'}]}]\n");
  MessageScan& done = scan({{"Subject", " s"}});
  done.failTelling();
  EXPECT_EQ(done.answer().kind, Answer::Kind::TempFail);
  done.settle();
}

TEST_F(MessageScanTest, NoActionBeginsBehindTheDeadline) {
  use("rules: [{id: 1, when: always, actions: [delete]}]\n");
  settings_.deadlineSeconds = 0;
  EXPECT_EQ(scan({{"Subject", " s"}}).answer().kind, Answer::Kind::TempFail);
  settings_.deadlineSeconds = 240;
  EXPECT_EQ(scan({{"Subject", " s"}}).answer().kind, Answer::Kind::Discard);
}

TEST_F(MessageScanTest, PartsThatWereNotLookedAtGetTheVerdictOfTheSettings) {
  use("rules: []\n");
  std::string body;
  for (int i = 0; i < 10; ++i) body += "--b\r\n\r\npart\r\n";
  const std::vector<HeaderLine> header = {{"Content-Type", " multipart/mixed; boundary=b"}};
  EXPECT_EQ(scan(header, body + "--b--\r\n").answer().kind, Answer::Kind::Continue);
  settings_.limits.parts = 5;
  EXPECT_EQ(scan(header, body + "--b--\r\n").answer().kind, Answer::Kind::TempFail);
  settings_.beyondLimits = Answer::Kind::Reject;
  EXPECT_EQ(scan(header, body + "--b--\r\n").answer().kind, Answer::Kind::Reject);
}

TEST_F(MessageScanTest, WhatHidesPartsNeverPassesUnseen) {
  use("rules: []\n");
  const std::string part =
      "--b\r\nContent-Type: message/rfc822\r\nContent-Transfer-Encoding: ENCODING\r\n\r\n"
      "RnJvbTogYUBiLmV4YW1wbGUNCg0K\r\n--b--\r\n";
  const auto partUnder = [&part](const char* encoding) {
    std::string text = part;
    return text.replace(text.find("ENCODING"), 8, encoding);
  };
  const HeaderLine mixed{"Content-Type", " multipart/mixed; boundary=b"};
  const HeaderLine nested{"Content-Type", " message/rfc822"};
  const auto encoding = [](const char* name) {
    return HeaderLine{"Content-Transfer-Encoding", std::string(" ") + name};
  };
  const struct {
    std::vector<HeaderLine> header;
    std::string body;
    const char* why;  ///< empty when it passes
  } cases[] = {
      {{nested}, "Subject: s\r\n\r\nbody\r\n", ""},
      {{nested, encoding("base64")}, "U3ViamVjdDogcw0K\r\n", "nested message is encoded"},
      {{nested, encoding("quoted-printable")}, "Subject: s\r\n", "nested message is encoded"},
      {{mixed}, partUnder("8bit"), ""},
      {{mixed}, partUnder("base64"), "nested message is encoded"},
      {{mixed}, partUnder("quoted-printable"), "nested message is encoded"},
      {{mixed, encoding("base64")}, "LS1iDQo=\r\n", "multipart is encoded"},
      {{mixed, encoding("quoted-printable")}, "--b\r\n\r\nx\r\n--b--\r\n", "multipart is encoded"},
      {{{"Content-Type", " multipart/mixed"}}, partUnder("8bit"), "usable boundary"},
      {{{"Content-Type", " multipart/mixed; boundary=c"}}, partUnder("8bit"), "usable boundary"},
      {{{"Content-Type", " multipart/mixed"}}, "text\r\n-- \r\nsignature\r\n", ""},
  };
  for (const auto& one : cases) {
    const MessageScan& done = scan(one.header, one.body);
    EXPECT_THAT(done.answer().text, HasSubstr(one.why)) << one.body;
    EXPECT_EQ(done.answer().kind,
              *one.why != '\0' ? Answer::Kind::TempFail : Answer::Kind::Continue)
        << one.body;
  }
}

TEST_F(MessageScanTest, WhatCannotBeGatheredIsATemporaryFailure) {
  use("rules: []\n");
  EXPECT_EQ(scan({{"Subject", " a\nX-Evil: b"}}).answer().kind, Answer::Kind::TempFail);
  EXPECT_EQ(scan({{"no name", " a"}}).answer().kind, Answer::Kind::TempFail);
}

TEST_F(MessageScanTest, WithoutAPolicyNothingPasses) {
  EXPECT_EQ(scan({{"Subject", " s"}}).answer().kind, Answer::Kind::TempFail);
}

}  // namespace
}  // namespace gateway::milter
