// Messages that wait for their time of the day, and go back to be scanned then.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/delivery/reprocessing.h"
#include "host/delivery/spool_sweep.h"
#include "host/message/message.h"
#include "tests/e2e/smtp/submission_test.h"
#include "tests/unit/host/delivery/failing_store.h"
#include "tests/unit/host/delivery/local_zone.h"

namespace {

using namespace host::delivery;
using host::message::Buffer;
using host::message::Message;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using testing_host::LocalZone;
using testing_host::SmtpSink;
using testing_host::SpoolBench;

constexpr char kMail[] = "Subject: later\r\n\r\nbody\r\n";
constexpr char kTempfails[] = R"({"at": {"mail": {"reply": "450 4.2.1 busy"}}})";
constexpr char kRefuses[] = R"({"at": {"rcpt1": {"reply": "550 5.1.1 unknown"}}})";

// A listener that scans, another that does not, and a spool with an index. It is UTC.
class PostponedMail : public ::testing::Test {
 protected:
  explicit PostponedMail(const std::string& script = "{}") : scanning_(script), bench_(&plain_) {
    bench_.settings.scan = scanning_.destination();
  }

  std::string file(const std::string& at, const std::string& mail = kMail,
                   const TimeWindow& window = {8, 30, 23, 59}, unsigned int rule = 15,
                   unsigned int passes = 0) {
    testing_host::PlainMessage message(mail);
    message.setEnvelope("sender@example.org", {"b@example.com", "a@example.com"});
    SpoolEntry entry;
    entry.kind = kPostponedKind;
    entry.queuedAt = LocalZone::at(at);
    entry.window = window;
    entry.rule = rule;
    entry.passes = passes;
    std::string id;
    FiledEntry filed;
    id = Spool::newId();
    EXPECT_EQ(bench_.spool.putAs(id, entry, message, &filed), AdapterError::None);
    EXPECT_TRUE(index_.add(id, filed.entry, message, nullptr).ok());
    return id;
  }

  // A worker of its own, as behind a restart.
  SubmissionCounts runAt(const std::string& time) { return runAt(LocalZone::at(time)); }
  SubmissionCounts runAt(std::int64_t time) {
    return SubmissionWorker(bench_.spool, bench_.settings, bench_.keys, &bench_.log, &index_)
        .runOnce(time);
  }

  // What the scanner makes of a message that came back, behind a mail system.
  Reprocessing admit(const std::string& mail, std::string& left, std::int64_t now) {
    auto message = Message::parse(Buffer::copyOf("Received: from gateway\r\n" + mail));
    message->setEnvelope({"sender@example.org", {"a@example.com", "b@example.com"}, ""});
    Reprocessing found;
    EXPECT_EQ(admitReprocessing(*message, ReprocessTrust::Sealed, &bench_.keys, now, found),
              AdapterError::None);
    removeReprocessing(*message);
    left = message->toString();
    return found;
  }

  std::int64_t due(const std::string& id, const std::string& now) {
    return bench_.show(id, LocalZone::at(now)).due;
  }

  LocalZone zone_{"UTC"};
  SmtpSink scanning_;
  SmtpSink plain_;
  SpoolBench bench_;
  testing_host::FailingStore store_;
  SpoolIndex index_{store_, bench_.folder / "spool"};
};

TEST_F(PostponedMail, GoesBackUnderTheSealAtTheBeginOfItsWindow) {
  const std::string id = file("2024-03-05 06:00:00");
  const std::int64_t opening = LocalZone::at("2024-03-05 08:30:00");
  const SubmissionCounts early = runAt(opening - 1);
  EXPECT_EQ(early.waiting, 1u);
  EXPECT_EQ(early.nextDue, opening);
  EXPECT_EQ(due(id, "2024-03-05 06:00:01"), opening);
  EXPECT_EQ(store_.memory().rowCount(), 1u);
  ASSERT_EQ(runAt(opening).sent, 1u);
  EXPECT_THAT(plain_.messages(), IsEmpty());
  ASSERT_THAT(scanning_.messages(), SizeIs(1));
  std::string left;
  const Reprocessing found = admit(scanning_.lastMessage(), left, opening + 60);
  EXPECT_TRUE(found.honoured) << found.refusal;
  EXPECT_THAT(found.rules, ElementsAre(15));
  EXPECT_EQ(found.type, "postpone");
  EXPECT_EQ(found.passes, 1u);
  EXPECT_EQ(left, std::string("Received: from gateway\r\n") + kMail);
  EXPECT_EQ(bench_.entries(), 0u);
  EXPECT_EQ(store_.memory().rowCount(), 0u);
}

TEST_F(PostponedMail, GoesAtOnceInsideItsWindow) {
  file("2024-03-05 08:30:00");
  file("2024-03-05 08:30:00", kMail, {0, 0, 23, 59});
  EXPECT_EQ(runAt("2024-03-05 08:30:00").sent, 2u);
}

TEST_F(PostponedMail, ASecondRuleJoinsTheFirst) {
  file("2024-03-05 09:00:00",
       "Subject: later\r\nX-kavi-reprocess-rules: 12\r\nX-kavi-reprocess-type: readdress\r\n\r\nb",
       {8, 30, 23, 59}, 15, 2);
  ASSERT_EQ(runAt("2024-03-05 09:00:00").sent, 1u);
  std::string left;
  const Reprocessing found =
      admit(scanning_.lastMessage(), left, LocalZone::at("2024-03-05 09:00:00"));
  EXPECT_THAT(found.rules, ElementsAre(12, 15));
  EXPECT_EQ(found.type, "postpone");
  EXPECT_EQ(found.passes, 3u);
  EXPECT_EQ(left, "Received: from gateway\r\nSubject: later\r\n\r\nb\r\n");
}

// Without the seal the rule would hold them back every day.
TEST_F(PostponedMail, CarriesTheSealWhateverItsHeader) {
  const std::pair<std::string, std::string> mails[] = {
      {"", ""},
      {"\r\nno header\r\n", "\r\nno header\r\n"},
      {"no header\r\n", "\r\nno header\r\n"},
      {" a fold\r\nSubject: x\r\n\r\nbody\r\n", "\r\n a fold\r\nSubject: x\r\n\r\nbody\r\n"},
      {"Subject: x\r\n", "Subject: x\r\n"},
      {"Subject: x\rTo: y\r\rbody\r", "Subject: x\r\nTo: y\r\n\r\nbody\r\n"},
      {"Subject: x\nTo: y\n\nbody", "Subject: x\r\nTo: y\r\n\r\nbody\r\n"},
      {"Subject: x\r\nno field\r\nbody\r\n", "Subject: x\r\nno field\r\nbody\r\n"},
      {"Subject: x\r\n\r\n.\r\n..\r\n\r\n\r\n", "Subject: x\r\n\r\n.\r\n..\r\n\r\n\r\n"},
      {"X-kavi-reprocess-rules: 1\r\nX-kavi-reprocess-rules: 2\r\n\r\nb\r\n", "\r\nb\r\n"},
      {"x-KAVI-reprocess-rules: no number\r\nSubject: x\r\n\r\nb\r\n", "Subject: x\r\n\r\nb\r\n"},
  };
  const std::int64_t now = LocalZone::at("2024-03-05 09:00:00");
  for (const auto& [mail, expected] : mails) {
    file("2024-03-05 09:00:00", mail);
    ASSERT_EQ(runAt(now).sent, 1u) << mail;
    std::string left;
    const Reprocessing found = admit(scanning_.lastMessage(), left, now);
    EXPECT_TRUE(found.honoured) << found.refusal << ": " << mail;
    EXPECT_THAT(found.rules, ElementsAre(15)) << mail;
    EXPECT_EQ(left, "Received: from gateway\r\n" + expected) << mail;
  }
}

TEST_F(PostponedMail, OfNoKnownRuleIsNotScanned) {
  file("2024-03-05 09:00:00", kMail, {8, 30, 23, 59}, 0);
  ASSERT_EQ(runAt("2024-03-05 09:00:00").sent, 1u);
  EXPECT_THAT(plain_.messages(), ElementsAre(kMail));
  EXPECT_THAT(scanning_.messages(), IsEmpty());
}

TEST_F(PostponedMail, ThatCameBackTooOftenStaysAsFailed) {
  const std::string id = file("2024-03-05 09:00:00", kMail, {8, 30, 23, 59}, 15, 5);
  EXPECT_EQ(runAt("2024-03-05 09:00:00").failed, 1u);
  EXPECT_EQ(bench_.show(id).state.code, static_cast<unsigned int>(AdapterError::TooManyPasses));
  EXPECT_THAT(bench_.log.takeLines(1), SizeIs(1));
  EXPECT_EQ(store_.memory().rowCount(), 1u);
}

TEST_F(PostponedMail, WaitsForTheNextDayWhenNobodyWasThere) {
  const std::string id = file("2024-03-05 06:00:00");
  EXPECT_EQ(runAt("2024-03-06 00:00:00").waiting, 1u);
  EXPECT_EQ(due(id, "2024-03-06 00:00:00"), LocalZone::at("2024-03-06 08:30:00"));
  EXPECT_EQ(runAt("2024-03-06 08:29:59").waiting, 1u);
  EXPECT_EQ(runAt("2024-03-06 08:30:00").sent, 1u);
}

TEST_F(PostponedMail, IsNotHeldByClocksThatJump) {
  // Filed by a clock that was years ahead, then behind.
  const std::string ahead = file("2031-01-01 06:00:00");
  const std::string behind = file("1970-01-02 06:00:00");
  EXPECT_EQ(runAt("2024-03-05 07:00:00").waiting, 2u);
  EXPECT_EQ(due(ahead, "2024-03-05 07:00:00"), LocalZone::at("2024-03-05 08:30:00"));
  EXPECT_EQ(due(behind, "2024-03-05 07:00:00"), LocalZone::at("2024-03-05 08:30:00"));
  // It jumps over the whole window, back before it, and at last into it.
  EXPECT_EQ(runAt("2024-03-06 00:10:00").waiting, 2u);
  EXPECT_EQ(runAt("2024-03-04 08:00:00").waiting, 2u);
  EXPECT_THAT(scanning_.messages(), IsEmpty());
  EXPECT_EQ(runAt("2024-03-05 08:30:00").sent, 2u);
}

TEST_F(PostponedMail, GoesWhenAnAdministratorWantsIt) {
  const std::string id = file("2024-03-05 06:00:00");
  SpoolControl control(bench_.spool, bench_.settings.retry);
  ASSERT_EQ(control.retry(id, LocalZone::at("2024-03-05 07:00:00")), AdapterError::None);
  EXPECT_EQ(runAt("2024-03-05 07:00:00").sent, 1u);
}

TEST_F(PostponedMail, GoesThoughTheIndexIsDown) {
  file("2024-03-05 09:00:00");
  store_.failAll(host::store::StoreError::Unavailable);
  EXPECT_EQ(runAt("2024-03-05 09:00:00").sent, 1u);
  store_.recover();
  EXPECT_EQ(bench_.entries(), 0u);
  EXPECT_THAT(bench_.log.takeLines(2), Contains(HasSubstr("its row of the index is not")));
  // The next start takes the row away.
  SpoolSweepReport report;
  std::string fault;
  EXPECT_EQ(SpoolSweep(bench_.spool, index_).run(report, fault), AdapterError::None);
  EXPECT_EQ(report.rowsRemoved, 1u);
  EXPECT_EQ(store_.memory().rowCount(), 0u);
}

class RefusedForNow : public PostponedMail {
 protected:
  RefusedForNow() : PostponedMail(kTempfails) {}
};

TEST_F(RefusedForNow, IsTriedUntilTheEndOfTheDayAndThenFromTheNextBegin) {
  const std::string id = file("2024-03-05 06:00:00");
  std::int64_t now = LocalZone::at("2024-03-05 08:30:00");
  const std::int64_t midnight = LocalZone::at("2024-03-06 00:00:00");
  const std::int64_t next = LocalZone::at("2024-03-06 08:30:00");
  int attempts = 0;
  while (now < midnight) {
    ASSERT_EQ(runAt(now).deferred, 1u);
    ++attempts;
    now = bench_.show(id, now).due;
    ASSERT_LT(attempts, 100);
  }
  EXPECT_GT(attempts, 15);
  EXPECT_EQ(now, next);
  EXPECT_EQ(runAt(midnight).waiting, 1u);
  EXPECT_EQ(runAt(next - 1).waiting, 1u);
  EXPECT_EQ(runAt(next).deferred, 1u);
  EXPECT_EQ(store_.memory().rowCount(), 1u);
}

TEST_F(RefusedForNow, IsNotPutOffByAClockThatIsSetBack) {
  const std::string id = file("2024-03-05 09:00:00");
  EXPECT_EQ(runAt("2031-03-05 09:00:00").deferred, 1u);
  EXPECT_EQ(runAt("2024-03-05 09:10:00").deferred, 1u);
  const std::int64_t again = due(id, "2024-03-05 09:10:00");
  EXPECT_GE(again, LocalZone::at("2024-03-05 09:11:00"));
  EXPECT_LE(again, LocalZone::at("2024-03-05 09:13:00"));
}

// The wait for its time does not count: it is given up five days behind its first attempt.
TEST_F(RefusedForNow, IsGivenUpInTheEnd) {
  bench_.settings.retry.giveUpAfter = 3 * 86'400;
  const std::string id = file("2024-03-01 06:00:00");
  for (const char* day : {"05", "06", "07"}) {
    EXPECT_EQ(runAt("2024-03-" + std::string(day) + " 09:00:00").deferred, 1u) << day;
  }
  EXPECT_EQ(runAt("2024-03-08 09:00:01").failed, 1u);
  EXPECT_EQ(bench_.show(id).state.code, static_cast<unsigned int>(AdapterError::GaveUp));
  EXPECT_THAT(bench_.log.takeLines(1), ElementsAre(HasSubstr("given up")));
}

class RefusedForGood : public PostponedMail {
 protected:
  RefusedForGood() : PostponedMail(kRefuses) {}
};

TEST_F(RefusedForGood, StaysAsFailedWithItsRow) {
  const std::string id = file("2024-03-05 09:00:00");
  EXPECT_EQ(runAt("2024-03-05 09:00:00").failed, 1u);
  EXPECT_EQ(bench_.show(id).condition, SpoolItem::Condition::Failed);
  EXPECT_THAT(bench_.log.takeLines(1), ElementsAre(HasSubstr("550 5.1.1 unknown")));
  EXPECT_EQ(runAt("2024-03-06 09:00:00").stuck, 1u);
  EXPECT_EQ(store_.memory().rowCount(), 1u);
}

TEST_F(PostponedMail, KnowsWhenClocksChange) {
  const LocalZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  const TimeWindow early{2, 30, 23, 59};
  file("2024-03-30 23:00:00", kMail, early);
  const std::int64_t change = LocalZone::at("2024-03-31 01:59:59") + 1;
  EXPECT_EQ(runAt(change - 1).waiting, 1u);
  EXPECT_EQ(runAt(change).sent, 1u);
  file("2024-10-27 00:30:00", kMail, early);
  const std::int64_t first = LocalZone::at("2024-10-27 01:30:00") + 3600;
  EXPECT_EQ(runAt(first - 1).waiting, 1u);
  EXPECT_EQ(runAt(first + 2400).sent, 1u) << "02:10 for the second time";
}

}  // namespace
