// Each effect of a message happens once, though its sender tries again.
#include "host/delivery/message_effects.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using namespace host::delivery;
using testing_host::Answer;
using testing_host::archive;
using testing_host::filesBelow;
using testing_host::FilingBench;
using testing_host::PlainMessage;
using testing_host::quarantine;
using testing_host::Tokens;
using Files = std::vector<std::string>;

std::int64_t theTime = 0;
std::int64_t testClock() { return theTime; }

// What a test changes about a message and its action.
struct Attempt {
  std::optional<std::string> sender = "a@example.org";
  std::vector<std::string> recipients = {"b@example.org", "c@example.org"};
  std::string bytes = "Subject: x\r\n\r\nbody\r\n";
  unsigned int rule = 15;
  unsigned int position = 0;
  std::string setting = "2;7;9";
  std::string operation = "postpone";
  int callsBefore = 0;
};

class Effects : public ::testing::Test {
 protected:
  Effects() { theTime = 1'000'000; }

  // Whether the effect of the attempt happened. Its sender is told to try again.
  bool happens(const Attempt& attempt) {
    MessageEffects effects(bench_.store.get(), testClock);
    PlainMessage message(attempt.bytes);
    message.setEnvelope(attempt.sender, attempt.recipients);
    EXPECT_EQ(effects.beginMessage(message, attempt.bytes), AdapterError::None);
    EXPECT_EQ(effects.beginAction(attempt.rule, attempt.position, attempt.setting),
              AdapterError::None);
    for (int call = 0; call < attempt.callsBefore; ++call) {
      EXPECT_EQ(effects.once(attempt.operation, 60, [] { return AdapterError::None; }),
                AdapterError::None);
    }
    bool happened = false;
    EXPECT_EQ(effects.once(attempt.operation, 60,
                           [&] {
                             happened = true;
                             return AdapterError::None;
                           }),
              AdapterError::None);
    EXPECT_EQ(effects.finalAnswer(FinalAnswer::TemporaryFailure), AdapterError::None);
    return happened;
  }

  FilingBench bench_;
};

TEST_F(Effects, HappenOnceForTheSameAttempt) {
  EXPECT_TRUE(happens({}));
  EXPECT_FALSE(happens({}));
  EXPECT_FALSE(happens({}));
}

TEST_F(Effects, DoNotDependOnTheOrderOfRecipients) {
  Attempt attempt;
  EXPECT_TRUE(happens(attempt));
  std::swap(attempt.recipients[0], attempt.recipients[1]);
  EXPECT_FALSE(happens(attempt));
}

TEST_F(Effects, HappenForEverythingElseThatDiffers) {
  const std::function<void(Attempt&)> changes[] = {
      [](Attempt&) {},
      [](Attempt& a) { a.sender = "x@example.org"; },
      [](Attempt& a) { a.sender = ""; },
      [](Attempt& a) { a.sender.reset(); },
      [](Attempt& a) { a.recipients = {"b@example.org"}; },
      [](Attempt& a) { a.recipients = {}; },
      [](Attempt& a) {
        a.recipients = {"b@example.org", "b@example.org", "c@example.org"};
      },
      [](Attempt& a) { a.recipients = {"b@example.orgc@example.org"}; },
      [](Attempt& a) {
        a.recipients = {"b@example.org", "", "c@example.org"};
      },
      [](Attempt& a) { a.bytes += " "; },
      [](Attempt& a) { a.bytes = ""; },
      [](Attempt& a) { a.rule = 16; },
      [](Attempt& a) { a.position = 1; },
      [](Attempt& a) { a.setting = "2;7;8"; },
      [](Attempt& a) { a.setting = ""; },
      [](Attempt& a) { a.operation = "delete"; },
      [](Attempt& a) { a.callsBefore = 1; },
      [](Attempt& a) { a.callsBefore = 2; },
  };
  for (const auto& change : changes) {
    Attempt attempt;
    change(attempt);
    EXPECT_TRUE(happens(attempt)) << &change - changes;
  }
  for (const auto& change : changes) {
    Attempt attempt;
    change(attempt);
    EXPECT_FALSE(happens(attempt)) << &change - changes;
  }
}

TEST_F(Effects, AreForgottenWithEveryFinalAnswerButATemporaryFailure) {
  for (const FinalAnswer answer : {FinalAnswer::Accepted, FinalAnswer::Rejected,
                                   FinalAnswer::Discarded, FinalAnswer::TemporaryFailure}) {
    MessageEffects effects(bench_.store.get());
    ASSERT_EQ(effects.beginMessage(bench_.message, "x"), AdapterError::None);
    ASSERT_EQ(effects.beginAction(1, 0, "x"), AdapterError::None);
    ASSERT_EQ(effects.once("delete", 60, [] { return AdapterError::None; }), AdapterError::None);
    EXPECT_EQ(bench_.store->memory().effectCount(), 1u);
    EXPECT_EQ(effects.finalAnswer(answer), AdapterError::None);
    EXPECT_EQ(bench_.store->memory().effectCount(),
              answer == FinalAnswer::TemporaryFailure ? 1u : 0u);
  }
}

TEST_F(Effects, SayWhenTheyCannotBeForgotten) {
  MessageEffects effects(bench_.store.get());
  ASSERT_EQ(effects.beginMessage(bench_.message, "x"), AdapterError::None);
  ASSERT_EQ(effects.beginAction(1, 0, "x"), AdapterError::None);
  ASSERT_EQ(effects.once("delete", 60, [] { return AdapterError::None; }), AdapterError::None);
  bench_.store->failAll(host::store::StoreError::Busy);
  EXPECT_EQ(effects.finalAnswer(FinalAnswer::Accepted), AdapterError::IndexBusy);
  EXPECT_EQ(effects.lastFault(), "the index is told to fail");
}

TEST_F(Effects, OfAnActionThatAsksForNothingAreNone) {
  MessageEffects effects(bench_.store.get());
  ASSERT_EQ(effects.beginMessage(bench_.message, "x"), AdapterError::None);
  ASSERT_EQ(effects.beginAction(1, 0, "x"), AdapterError::None);
  ASSERT_EQ(effects.finalAnswer(FinalAnswer::Accepted), AdapterError::None);
  EXPECT_TRUE(bench_.store->calls().empty()) << "changes in place write nothing";
}

TEST_F(Effects, AreNotTrackedForWhoTellsNothing) {
  MessageEffects effects(bench_.store.get());
  int happened = 0;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(effects.once("delete", 60,
                           [&] {
                             ++happened;
                             return AdapterError::None;
                           }),
              AdapterError::None);
  }
  EXPECT_EQ(happened, 3);
  EXPECT_TRUE(bench_.store->calls().empty());
  EXPECT_EQ(effects.beginAction(1, 0, "x"), AdapterError::InvalidArgument) << "of no message";
}

TEST_F(Effects, AreNotBegunWhenTheLedgerIsDown) {
  MessageEffects effects(bench_.store.get());
  ASSERT_EQ(effects.beginMessage(bench_.message, "x"), AdapterError::None);
  ASSERT_EQ(effects.beginAction(1, 0, "x"), AdapterError::None);
  bench_.store->failAll(host::store::StoreError::Unavailable);
  bool happened = false;
  EXPECT_EQ(effects.once("delete", 60,
                         [&] {
                           happened = true;
                           return AdapterError::None;
                         }),
            AdapterError::IndexUnavailable);
  EXPECT_FALSE(happened);
}

TEST_F(Effects, HaveHappenedThoughTheLedgerFailsBehindThem) {
  MessageEffects effects(bench_.store.get());
  ASSERT_EQ(effects.beginMessage(bench_.message, "x"), AdapterError::None);
  ASSERT_EQ(effects.beginAction(1, 0, "x"), AdapterError::None);
  bench_.store->failCall(2);
  EXPECT_EQ(effects.once("delete", 60, [] { return AdapterError::None; }), AdapterError::None);
  EXPECT_TRUE(bench_.store->fired());
}

TEST_F(Effects, ThatFailedHappenWithTheNextAttempt) {
  Attempt attempt;
  {
    MessageEffects effects(bench_.store.get(), testClock);
    PlainMessage message(attempt.bytes);
    message.setEnvelope(attempt.sender, attempt.recipients);
    ASSERT_EQ(effects.beginMessage(message, attempt.bytes), AdapterError::None);
    ASSERT_EQ(effects.beginAction(attempt.rule, attempt.position, attempt.setting),
              AdapterError::None);
    EXPECT_EQ(effects.once(attempt.operation, 60, [] { return AdapterError::DiskFull; }),
              AdapterError::DiskFull);
    EXPECT_EQ(effects.once("delete", 60, []() -> AdapterError { throw std::bad_alloc(); }),
              AdapterError::OutOfMemory);
  }
  EXPECT_EQ(bench_.store->memory().effectCount(), 0u);
  EXPECT_TRUE(happens(attempt));
}

TEST_F(Effects, ThatAnotherAttemptIsAtAreLeftToItUntilItsLeaseIsOut) {
  MessageEffects first(bench_.store.get(), testClock);
  MessageEffects second(bench_.store.get(), testClock);
  for (MessageEffects* effects : {&first, &second}) {
    ASSERT_EQ(effects->beginMessage(bench_.message, "x"), AdapterError::None);
    ASSERT_EQ(effects->beginAction(1, 0, "x"), AdapterError::None);
  }
  MessageEffects::Ticket ticket;
  ASSERT_EQ(first.begin("delete", 60, "there", ticket), AdapterError::None);
  MessageEffects::Ticket other;
  theTime += 59;
  EXPECT_EQ(second.begin("delete", 60, "elsewhere", other), AdapterError::UnderWay);
  ASSERT_EQ(second.beginAction(1, 0, "x"), AdapterError::None);
  theTime += 1;
  EXPECT_EQ(second.begin("delete", 60, "elsewhere", other), AdapterError::None);
  EXPECT_TRUE(other.isTakenOver());
  EXPECT_EQ(other.answer.result, "there");
  EXPECT_EQ(first.finish(ticket, "there"), AdapterError::UnderWay) << "its claim is gone";
  EXPECT_EQ(second.finish(other, "elsewhere"), AdapterError::None);
}

// The adapter as a whole: one attempt of the engine at a message.
class RetryTest : public ::testing::Test {
 protected:
  struct Result {
    Answer quarantined;
    Answer archived;
  };

  // Every attempt has a message id of its own, as the host gives it.
  Result attempt(const std::string& id, FinalAnswer answer,
                 const std::string& bytes = "Subject: x\r\n\r\n") {
    PlainMessage message(bytes);
    message.setId(id);
    message.setEnvelope("a@example.org", {"b@example.org"});
    LocalAdapter adapter(bench_.state);
    Tokens tokens;
    EXPECT_EQ(adapter.beginMessage(message, bytes, tokens), AdapterError::None);
    Result result;
    EXPECT_EQ(adapter.beginAction(15, 0, "7"), AdapterError::None);
    result.quarantined = quarantine(adapter, message, bench_.folder);
    EXPECT_EQ(adapter.beginAction(15, 1, "8"), AdapterError::None);
    result.archived = archive(adapter, message, bench_.folder, "Sales");
    EXPECT_EQ(adapter.finalAnswer(answer), AdapterError::None);
    return result;
  }

  FilingBench bench_;
};

TEST_F(RetryTest, GetsTheEarlierCopyBack) {
  const Result first = attempt("first", FinalAnswer::TemporaryFailure);
  EXPECT_TRUE(first.quarantined.ok());
  EXPECT_TRUE(first.archived.ok());
  const Result second = attempt("second", FinalAnswer::Accepted);
  EXPECT_TRUE(second.quarantined.ok());
  EXPECT_TRUE(second.archived.ok());
  EXPECT_EQ(second.quarantined.path, first.quarantined.path);
  EXPECT_EQ(filesBelow(bench_.folder), (Files{"Sales/first.eml", "f/i/first.DF"}));
  EXPECT_EQ(bench_.rows().size(), 2u);
}

TEST_F(RetryTest, FilesAnewWhatWasSentAnew) {
  attempt("first", FinalAnswer::Accepted);
  attempt("second", FinalAnswer::Discarded);
  attempt("third", FinalAnswer::Rejected);
  EXPECT_EQ(filesBelow(bench_.folder).size(), 6u);
  EXPECT_EQ(bench_.store->memory().effectCount(), 0u);
}

TEST_F(RetryTest, FilesAnotherMessageWhileOneWaits) {
  attempt("first", FinalAnswer::TemporaryFailure);
  attempt("second", FinalAnswer::TemporaryFailure, "Subject: y\r\n\r\n");
  EXPECT_EQ(filesBelow(bench_.folder).size(), 4u);
}

TEST_F(RetryTest, FilesAgainWhenTheEarlierCopyIsGone) {
  const Result first = attempt("first", FinalAnswer::TemporaryFailure);
  std::filesystem::remove(first.quarantined.path);
  const Result second = attempt("second", FinalAnswer::TemporaryFailure);
  EXPECT_TRUE(second.quarantined.ok());
  EXPECT_EQ(second.quarantined.path, bench_.folder + "/s/e/second.DF");
  EXPECT_EQ(filesBelow(bench_.folder), (Files{"Sales/first.eml", "s/e/second.DF"}));
  const Result third = attempt("third", FinalAnswer::Accepted);
  EXPECT_EQ(third.quarantined.path, second.quarantined.path);
}

TEST_F(RetryTest, FilesAgainWhenTheFolderOfTheEarlierCopyIsGone) {
  const Result first = attempt("first", FinalAnswer::TemporaryFailure);
  std::filesystem::remove_all(bench_.folder + "/f");
  EXPECT_TRUE(attempt("second", FinalAnswer::Accepted).quarantined.ok());
  EXPECT_EQ(filesBelow(bench_.folder), (Files{"Sales/first.eml", "s/e/second.DF"}));
}

TEST_F(RetryTest, FailsWhenTheEarlierCopyCannotBeLookedFor) {
  attempt("first", FinalAnswer::TemporaryFailure);
  PlainMessage message("Subject: x\r\n\r\n");
  message.setId("second");
  message.setEnvelope("a@example.org", {"b@example.org"});
  LocalAdapter adapter(bench_.state);
  const Tokens tokens;
  ASSERT_EQ(adapter.beginMessage(message, message.bytes(), tokens), AdapterError::None);
  int failures = 0;
  for (unsigned int call = 1;; ++call) {
    ASSERT_EQ(adapter.beginAction(15, 0, "7"), AdapterError::None);
    bench_.ops.failCall(call, EIO);
    const Answer answer = quarantine(adapter, message, bench_.folder);
    const bool fired = bench_.ops.fired();
    bench_.ops.failCall(0, 0);
    EXPECT_EQ(filesBelow(bench_.folder), (Files{"Sales/first.eml", "f/i/first.DF"})) << call;
    if (!fired) {
      EXPECT_TRUE(answer.ok());
      break;
    }
    ++failures;
    EXPECT_EQ(answer.error, AdapterError::InputOutput) << call;
  }
  EXPECT_GT(failures, 5);
}

TEST_F(RetryTest, ClearsAwayWhatAKilledAttemptLeft) {
  // The state of a process that was killed between the file and its row.
  PlainMessage message("Subject: x\r\n\r\n");
  message.setId("killed");
  message.setEnvelope("a@example.org", {"b@example.org"});
  theTime = MessageEffects::systemClock() - kShortLeaseSeconds;
  MessageEffects killed(bench_.store.get(), testClock);
  ASSERT_EQ(killed.beginMessage(message, message.bytes()), AdapterError::None);
  ASSERT_EQ(killed.beginAction(15, 0, "7"), AdapterError::None);
  MessageEffects::Ticket ticket;
  const std::string leftOver = bench_.folder + "/k/i/killed.DF";
  ASSERT_EQ(killed.begin("quarantine", kShortLeaseSeconds, leftOver, ticket), AdapterError::None);
  std::filesystem::create_directories(bench_.folder + "/k/i");
  testing_host::writeFile(leftOver, message.bytes());

  const Result retry = attempt("retry", FinalAnswer::Accepted);
  EXPECT_TRUE(retry.quarantined.ok());
  EXPECT_EQ(filesBelow(bench_.folder), (Files{"Sales/retry.eml", "r/e/retry.DF"}));
  // Should it have been alive after all, it finds that its claim is gone.
  host::store::IndexEntry entry;
  entry.path = leftOver;
  const auto finishes = killed.finishes(ticket, leftOver);
  std::int64_t row = 0;
  EXPECT_EQ(bench_.store->addEntry(entry, &*finishes, row).error,
            host::store::StoreError::Conflict);
}

TEST_F(RetryTest, LeavesACopyWithARowToItsRow) {
  PlainMessage message("Subject: x\r\n\r\n");
  message.setEnvelope("a@example.org", {"b@example.org"});
  theTime = MessageEffects::systemClock() - kShortLeaseSeconds;
  MessageEffects killed(bench_.store.get(), testClock);
  ASSERT_EQ(killed.beginMessage(message, message.bytes()), AdapterError::None);
  ASSERT_EQ(killed.beginAction(15, 0, "7"), AdapterError::None);
  MessageEffects::Ticket ticket;
  const std::string adopted = bench_.folder + "/k/i/killed.DF";
  ASSERT_EQ(killed.begin("quarantine", kShortLeaseSeconds, adopted, ticket), AdapterError::None);
  std::filesystem::create_directories(bench_.folder + "/k/i");
  testing_host::writeFile(adopted, message.bytes());
  host::store::IndexEntry entry;
  entry.path = adopted;
  bool added = false;
  ASSERT_TRUE(bench_.store->addMissing(entry, added).ok());
  EXPECT_TRUE(attempt("retry", FinalAnswer::Accepted).quarantined.ok());
  EXPECT_TRUE(std::filesystem::exists(adopted));
}

TEST_F(RetryTest, WaitsWhileAnotherAttemptIsAtIt) {
  PlainMessage message("Subject: x\r\n\r\n");
  message.setEnvelope("a@example.org", {"b@example.org"});
  MessageEffects other(bench_.store.get());
  ASSERT_EQ(other.beginMessage(message, message.bytes()), AdapterError::None);
  ASSERT_EQ(other.beginAction(15, 0, "7"), AdapterError::None);
  MessageEffects::Ticket ticket;
  ASSERT_EQ(other.begin("quarantine", kShortLeaseSeconds, "/x", ticket), AdapterError::None);
  const Result retry = attempt("retry", FinalAnswer::TemporaryFailure);
  EXPECT_EQ(retry.quarantined.error, AdapterError::UnderWay);
  EXPECT_TRUE(retry.archived.ok());
  EXPECT_EQ(filesBelow(bench_.folder), Files{"Sales/retry.eml"});
}

// Each call on the index fails in turn, before it did anything or behind it. After any of them the
// retry has each copy once, with its row, and no other file counts.
TEST_F(RetryTest, EndsWithOneCopyWhereverTheIndexFails) {
  using Moment = testing_host::FailingStore::Moment;
  for (const Moment moment : {Moment::Before, Moment::Behind}) {
    unsigned int call = 1;
    for (;; ++call) {
      FilingBench bench;
      const auto run = [&](const std::string& id) {
        PlainMessage message("Subject: x\r\n\r\n");
        message.setId(id);
        message.setEnvelope("a@example.org", {"b@example.org"});
        LocalAdapter adapter(bench.state);
        const Tokens tokens;
        EXPECT_EQ(adapter.beginMessage(message, message.bytes(), tokens), AdapterError::None);
        EXPECT_EQ(adapter.beginAction(15, 0, "7"), AdapterError::None);
        const Answer answer = quarantine(adapter, message, bench.folder);
        EXPECT_EQ(adapter.finalAnswer(FinalAnswer::TemporaryFailure), AdapterError::None);
        return answer;
      };
      bench.store->failCall(call, moment);
      const Answer first = run("first");
      const bool fired = bench.store->fired();
      bench.store->failCall(0);
      if (!first.ok()) {
        EXPECT_EQ(first.error, AdapterError::IndexUnavailable);
        EXPECT_EQ(filesBelow(bench.folder), Files{});
        EXPECT_TRUE(bench.rows().empty());
      }
      const Answer second = run("second");
      // A lost answer leaves the effect claimed until the lease is out.
      if (second.error != AdapterError::UnderWay) {
        EXPECT_TRUE(second.ok());
        ASSERT_EQ(bench.rows().size(), 1u);
        EXPECT_EQ(bench.rows()[0].path, second.path);
        EXPECT_EQ(filesBelow(bench.folder).size(), 1u);
      } else {
        EXPECT_EQ(moment, Moment::Behind);
      }
      if (!fired) break;
    }
    EXPECT_GT(call, 2u);
  }
}

}  // namespace
