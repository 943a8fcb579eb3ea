// A policy that somebody changes in its store while messages ask for it.
#include "gateway/milter/store_policy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "gateway/policy/policy_records.h"
#include "host/store/sqlite_store.h"
#include "tests/unit/gateway/policy_texts.h"
#include "tests/unit/host/core/temp_folder.h"

namespace gateway::milter {
namespace {

using host::store::PolicyRecord;
using host::store::SqliteStore;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// As many rules as asked for.
std::string policyOf(std::size_t rules) {
  std::string text = "rules:" + std::string(rules == 0 ? " []\n" : "\n");
  for (std::size_t id = 1; id <= rules; ++id) {
    text += "- {id: " + std::to_string(id) + ", when: always, actions: [delete]}\n";
  }
  return text;
}

class StorePolicyTest : public testing::Test {
 protected:
  StorePolicyTest() {
    EXPECT_TRUE(writer_.prepare().ok());
    begin(std::chrono::hours(1));
  }

  /// \param pause  between two tries to make ready what a policy needs
  void begin(std::chrono::milliseconds pause) {
    auto store = std::make_unique<SqliteStore>(
        path_,
        host::store::SqliteOptions{.busyTimeoutMs = 50, .upkeep = host::store::Upkeep::Refuse});
    source_ = std::make_unique<StorePolicy>(std::move(store));
    source_->setHooks({.log = &log_,
                       .prepare =
                           [this](const policy::Snapshot&) {
                             ++prepared_;
                             return unprepared_;
                           },
                       .count = [this](bool used) { counts_.push_back(used ? "used" : "refused"); },
                       .countAway = [this] { ++away_; },
                       .preparePause = pause});
  }

  /// Makes the store hold as many rules; what \p spoil does to the record is in it, too.
  std::int64_t hold(std::size_t rules, const std::function<void(PolicyRecord&)>& spoil = {}) {
    PolicyRecord present;
    PolicyRecord next;
    policy::Diagnostics diagnostics("test");
    EXPECT_TRUE(writer_.readPolicy(present).ok());
    EXPECT_TRUE(
        policy::recordOf(policy::loadGood(policyOf(rules)).rows, present, next, diagnostics));
    if (spoil) spoil(next);
    std::int64_t revision = 0;
    const auto status = writer_.replacePolicy(next, {"test", 1}, revision);
    EXPECT_TRUE(status.ok()) << status.text;
    return revision;
  }

  /// The number of rules that a message gets; the fault when it gets none.
  std::string message() {
    std::string fault;
    const auto snapshot = source_->forMessage(fault);
    if (snapshot == nullptr) return fault;
    EXPECT_EQ(fault, "");
    return std::to_string(snapshot->rules().size());
  }

  std::vector<std::string> logged() const {
    std::vector<std::string> texts;
    for (const auto& line : capture_.lines()) {
      texts.push_back(std::to_string(line.level) + " " + line.text);
    }
    return texts;
  }

  testing_host::TempFolder temp_;
  std::string path_ = temp_ / "store.sqlite";
  SqliteStore writer_{path_};
  host::core::ProcessLog log_{{.level = 0}};
  host::core::LogCapture capture_{log_, 2};
  std::string unprepared_;
  int prepared_ = 0;
  std::atomic<int> away_ = 0;
  std::vector<std::string> counts_;
  std::unique_ptr<StorePolicy> source_;
};

TEST_F(StorePolicyTest, ChangesWithTheNextMessage) {
  hold(2);
  EXPECT_EQ(message(), "2");
  hold(3);
  EXPECT_EQ(message(), "3");
  hold(1);
  EXPECT_EQ(message(), "1");
  EXPECT_THAT(counts_, ElementsAre("used", "used", "used"));
}

TEST_F(StorePolicyTest, IsReadOnceForAllMessagesUntilItChanges) {
  hold(2);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(message(), "2");
  EXPECT_EQ(prepared_, 1);
}

TEST_F(StorePolicyTest, SaysThatAPolicyWithoutRulesLetsEverythingPass) {
  EXPECT_EQ(message(), "0");
  ASSERT_FALSE(logged().empty());
  EXPECT_THAT(logged()[0], HasSubstr("it has no rules: every message passes unchanged"));
}

TEST_F(StorePolicyTest, StaysWhenTheNewOneCannotBeUsedWhichIsSaidOnce) {
  hold(2);
  EXPECT_EQ(message(), "2");
  const std::size_t before = logged().size();
  hold(3, [](PolicyRecord& record) { record.rules[0].condition = "{\"when\":1}"; });
  for (int i = 0; i < 10; ++i) EXPECT_EQ(message(), "2");
  const std::vector<std::string> lines = logged();
  ASSERT_EQ(lines.size(), before + 2);
  EXPECT_THAT(lines[before], HasSubstr("rule 1: unknown condition 'when'"));
  EXPECT_THAT(lines[before + 1], HasSubstr("1 the policy of store"));
  EXPECT_THAT(lines[before + 1], HasSubstr("is NOT in force: the one before it stays"));
  EXPECT_THAT(counts_, ElementsAre("used", "refused"));
  hold(4);
  EXPECT_EQ(message(), "4");
}

TEST_F(StorePolicyTest, IsNoneWhenTheFirstOneCannotBeUsed) {
  hold(1, [](PolicyRecord& record) { record.rules[0].condition = "{\"when\":1}"; });
  EXPECT_EQ(message(), "no policy is in force");
  EXPECT_EQ(message(), "no policy is in force");
  EXPECT_THAT(counts_, ElementsAre("refused"));
}

TEST_F(StorePolicyTest, StaysWhenTheNewOneCannotBeMadeReady) {
  hold(2);
  EXPECT_EQ(message(), "2");
  unprepared_ = "/quarantine: no room";
  hold(3);
  EXPECT_EQ(message(), "2");
  EXPECT_THAT(logged(),
              testing::Contains("1 policy: /quarantine: no room (tried again by itself)"));
  unprepared_.clear();
  EXPECT_EQ(message(), "2") << "not with every message";
  source_->reload();
  EXPECT_EQ(message(), "3") << "somebody asked for it";
}

TEST_F(StorePolicyTest, ComesWithAMessageOnceItCanBeMadeReady) {
  begin(std::chrono::milliseconds(0));
  hold(2);
  EXPECT_EQ(message(), "2");
  unprepared_ = "/quarantine: no room";
  hold(3);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(message(), "2");
  EXPECT_THAT(counts_, ElementsAre("used", "refused"));
  const std::size_t before = logged().size();
  unprepared_.clear();
  EXPECT_EQ(message(), "3");
  EXPECT_EQ(logged().size(), before + 1) << "that it is in force";
  const int prepared = prepared_;
  EXPECT_EQ(message(), "3");
  EXPECT_EQ(prepared_, prepared);
  EXPECT_THAT(counts_, ElementsAre("used", "refused", "used"));
}

TEST_F(StorePolicyTest, ThatWaitsGivesWayToALaterOne) {
  begin(std::chrono::milliseconds(0));
  hold(2);
  EXPECT_EQ(message(), "2");
  unprepared_ = "/quarantine: no room";
  hold(3);
  EXPECT_EQ(message(), "2");
  hold(4, [](PolicyRecord& record) { record.rules[0].condition = "{\"when\":1}"; });
  unprepared_.clear();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(message(), "2") << "the later one cannot be used";
}

TEST_F(StorePolicyTest, IsNoneWhileTheStoreIsAwayAndComesBackWithIt) {
  hold(2);
  EXPECT_EQ(message(), "2");
  const std::size_t before = logged().size();
  std::filesystem::rename(path_, path_ + ".away");
  for (int i = 0; i < 3; ++i) EXPECT_THAT(message(), HasSubstr("the store cannot be opened"));
  EXPECT_FALSE(std::filesystem::exists(path_)) << "no empty policy takes its place";
  ASSERT_EQ(logged().size(), before + 1) << "said once";
  EXPECT_EQ(away_, 3);
  EXPECT_THAT(logged()[before], HasSubstr("cannot be read, and mail is refused for now"));
  std::filesystem::rename(path_ + ".away", path_);
  EXPECT_EQ(message(), "2");
  EXPECT_THAT(logged(), testing::Contains(HasSubstr("can be read again")));
}

TEST_F(StorePolicyTest, OfAStoreThatWasAwayIsReadAnewWhateverItsRevision) {
  const std::int64_t revision = hold(2);
  EXPECT_EQ(message(), "2");
  for (const char* end : {"", "-wal", "-shm"}) std::filesystem::remove(path_ + end);
  EXPECT_THAT(message(), HasSubstr("the store cannot be opened"));
  ASSERT_TRUE(writer_.prepare().ok());
  EXPECT_EQ(hold(5), revision);
  EXPECT_EQ(message(), "5");
}

TEST_F(StorePolicyTest, ThatWasReadBeforeTheFirstMessageIsNotReadAgain) {
  hold(2);
  const PolicyReading reading = source_->read();
  ASSERT_NE(reading.snapshot, nullptr);
  EXPECT_THAT(reading.faults, IsEmpty());
  source_->begin(reading);
  EXPECT_EQ(message(), "2");
  EXPECT_EQ(prepared_, 0);
}

TEST_F(StorePolicyTest, ThatWasAwayAtTheStartComesLater) {
  PolicyReading away;
  away.away = "down";
  source_->begin(away);
  hold(2);
  EXPECT_EQ(message(), "2");
}

TEST_F(StorePolicyTest, IsNeverOlderThanItsChangeForManyThreads) {
  constexpr int kThreads = 4;
  constexpr std::size_t kChanges = 30;
  std::atomic<std::size_t> held = 1;
  std::atomic<bool> ended = false;
  std::atomic<int> wrong = 0;
  std::atomic<int> asked = 0;
  hold(1);
  std::vector<std::jthread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      while (!ended) {
        const std::size_t least = held;
        std::string fault;
        const auto snapshot = source_->forMessage(fault);
        // The store may be locked for longer than a test waits; a policy that is there is whole.
        if (snapshot != nullptr && snapshot->rules().size() < least) ++wrong;
        if (snapshot != nullptr) ++asked;
      }
    });
  }
  for (std::size_t rules = 2; rules <= kChanges; ++rules) {
    hold(rules);
    held = rules;
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (asked < kThreads * 10 && std::chrono::steady_clock::now() < end) {
    std::this_thread::yield();
  }
  ended = true;
  threads.clear();
  EXPECT_GE(asked, kThreads * 10);
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(message(), std::to_string(kChanges));
}

}  // namespace
}  // namespace gateway::milter
