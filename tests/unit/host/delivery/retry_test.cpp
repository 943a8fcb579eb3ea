// A sender that tries again: what was filed for it before, or was about to be.
#include <gtest/gtest.h>

#include "host/delivery/message_effects.h"
#include "tests/fakes/capturing_log.h"
#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using namespace host::delivery;
using testing_host::Answer;
using testing_host::archive;
using testing_host::filesBelow;
using testing_host::FilingBench;
using testing_host::PlainMessage;
using testing_host::quarantine;
using testing_host::testClock;
using testing_host::theTime;
using testing_host::Tokens;
using Files = std::vector<std::string>;

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
    LocalAdapter adapter(bench_.state, nullptr, &log_);
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
  fakes::CapturingLog log_;
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
  EXPECT_TRUE(log_.takeLines(1).empty());
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
  const auto lines = log_.takeLines(1);
  ASSERT_EQ(lines.size(), 1u) << "whoever released the first will see this one, too";
  EXPECT_EQ(lines[0], "Message second is possibly doubled: an earlier attempt filed it as " +
                          first.quarantined.path +
                          ", which was released or deleted since; now it is at " +
                          second.quarantined.path + ".");
  EXPECT_EQ(filesBelow(bench_.folder), (Files{"Sales/first.eml", "s/e/second.DF"}));
  const Result third = attempt("third", FinalAnswer::Accepted);
  EXPECT_EQ(third.quarantined.path, second.quarantined.path);
}

TEST_F(RetryTest, FilesAgainWhenTheFolderOfTheEarlierCopyIsGone) {
  const Result first = attempt("first", FinalAnswer::TemporaryFailure);
  std::filesystem::remove_all(bench_.folder + "/f");
  EXPECT_TRUE(attempt("second", FinalAnswer::Accepted).quarantined.ok());
  EXPECT_EQ(filesBelow(bench_.folder), (Files{"Sales/first.eml", "s/e/second.DF"}));
  EXPECT_EQ(log_.takeLines(1).size(), 1u);
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

// A process that was killed at an effect; its lease is over.
class KilledAttempt {
 public:
  KilledAttempt(FilingBench& bench, const std::string& operation, const std::string& intended)
      : effects_(bench.store.get(), testClock) {
    PlainMessage message("Subject: x\r\n\r\n");
    message.setEnvelope("a@example.org", {"b@example.org"});
    theTime = MessageEffects::systemClock() - kShortLeaseSeconds;
    EXPECT_EQ(effects_.beginMessage(message, message.bytes()), AdapterError::None);
    EXPECT_EQ(effects_.beginAction(15, 0, "7"), AdapterError::None);
    EXPECT_EQ(effects_.begin(operation, kShortLeaseSeconds, intended, ticket_), AdapterError::None);
  }

  std::optional<host::store::MessageIndex::Finishes> finishes(const std::string& path) const {
    return effects_.finishes(ticket_, path);
  }

 private:
  MessageEffects effects_;
  MessageEffects::Ticket ticket_;
};

// Between the file of a quarantined message and its row.
KilledAttempt killedBehindFile(FilingBench& bench, const std::string& leftOver) {
  std::filesystem::create_directories(std::filesystem::path(leftOver).parent_path());
  testing_host::writeFile(leftOver, "Subject: x\r\n\r\n");
  return {bench, "quarantine", leftOver};
}

TEST_F(RetryTest, ClearsAwayWhatAKilledAttemptLeft) {
  const std::string leftOver = bench_.folder + "/k/i/killed.DF";
  const KilledAttempt killed = killedBehindFile(bench_, leftOver);
  const Result retry = attempt("retry", FinalAnswer::Accepted);
  EXPECT_TRUE(retry.quarantined.ok());
  EXPECT_EQ(filesBelow(bench_.folder), (Files{"Sales/retry.eml", "r/e/retry.DF"}));
  // Should it have been alive after all, it finds that its claim is gone.
  host::store::IndexEntry entry;
  entry.path = leftOver;
  const auto finishes = killed.finishes(leftOver);
  std::int64_t row = 0;
  EXPECT_EQ(bench_.store->addEntry(entry, &*finishes, row).error,
            host::store::StoreError::Conflict);
}

TEST_F(RetryTest, LeavesACopyWithARowToItsRow) {
  const std::string adopted = bench_.folder + "/k/i/killed.DF";
  const KilledAttempt killed = killedBehindFile(bench_, adopted);
  host::store::IndexEntry entry;
  entry.path = adopted;
  bool added = false;
  ASSERT_TRUE(bench_.store->addMissing(entry, added).ok());
  EXPECT_TRUE(attempt("retry", FinalAnswer::Accepted).quarantined.ok());
  EXPECT_TRUE(std::filesystem::exists(adopted));
}

// The operations that put a message into the spool.
class SpoolRetry : public RetryTest, public ::testing::WithParamInterface<const char*> {
 protected:
  SpoolRetry() { settings_.scan.host = settings_.plain.host = "192.0.2.1"; }

  // \return what is in the spool afterwards
  std::vector<std::string> attempt() {
    PlainMessage message("Subject: x\r\n\r\n");
    message.setEnvelope("a@example.org", {"b@example.org"});
    LocalAdapter adapter(bench_.state, &settings_, &log_);
    const Tokens tokens;
    EXPECT_EQ(adapter.beginMessage(message, message.bytes(), tokens), AdapterError::None);
    EXPECT_EQ(adapter.beginAction(15, 0, "7"), AdapterError::None);
    unsigned int error = 99;
    if (GetParam() == std::string(kPostponedKind)) {
      adapter.postponeMessage(error, &message, 8, 30, 9, 30);
    } else if (GetParam() == std::string(kResentKind)) {
      adapter.resendMessage(error, &message, 1);
    } else {
      adapter.deliverMessage(error, &message);
    }
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(adapter.finalAnswer(FinalAnswer::TemporaryFailure), AdapterError::None);
    std::vector<std::string> ids;
    EXPECT_EQ(bench_.state.spool().list(ids), AdapterError::None);
    return ids;
  }

  DeliverySettings settings_;
};

TEST_P(SpoolRetry, FindsTheMessageThere) {
  const auto ids = attempt();
  EXPECT_EQ(ids.size(), 1u);
  EXPECT_EQ(attempt(), ids);
  ASSERT_EQ(bench_.state.spool().remove(ids[0]), AdapterError::None);
  EXPECT_TRUE(attempt().empty()) << "sent is sent";
  EXPECT_TRUE(log_.takeLines(1).empty());
}

TEST_P(SpoolRetry, TakesWhatAKilledAttemptLeftThere) {
  const std::string id = Spool::newId();
  const KilledAttempt killed(bench_, GetParam(), id);
  SpoolEntry entry;
  entry.kind = GetParam();
  ASSERT_EQ(bench_.state.spool().putAs(id, entry, bench_.message), AdapterError::None);
  EXPECT_EQ(attempt(), std::vector<std::string>{id});
  EXPECT_EQ(attempt(), std::vector<std::string>{id});
  EXPECT_TRUE(log_.takeLines(1).empty());
}

TEST_P(SpoolRetry, SaysThatAMessageMayBeDoubled) {
  const KilledAttempt killed(bench_, GetParam(), Spool::newId());
  EXPECT_EQ(attempt().size(), 1u);
  const auto lines = log_.takeLines(1);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("is possibly doubled"), std::string::npos) << lines[0];
}

INSTANTIATE_TEST_SUITE_P(All, SpoolRetry,
                         ::testing::Values(kPostponedKind, kResentKind, kDeliveredKind),
                         [](const auto& kind) { return std::string(kind.param); });

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
