// The worker that sends what waits in the spool.
#include "host/delivery/submission_worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string_view>
#include <thread>

#include "host/delivery/reprocessing.h"
#include "tests/e2e/smtp/stage_cases.h"
#include "tests/e2e/smtp/submission_test.h"

namespace {

using namespace host::delivery;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using testing_host::kFiled;
using testing_host::SmtpSink;
using testing_host::SpoolBench;
using testing_host::StageCase;

TEST(SubmissionWorker, SendsWhatIsDueAndForgetsIt) {
  SmtpSink sink;
  SpoolBench bench(&sink);
  bench.file();
  bench.file(kDeliveredKind, {"c@example.com"}, "Subject: second\r\n\r\n");
  const SubmissionCounts counts = bench.runOnce(kFiled);
  EXPECT_EQ(counts.sent, 2u);
  EXPECT_EQ(counts.nextDue, std::nullopt);
  EXPECT_THAT(sink.messages(),
              ElementsAre("Subject: test\r\n\r\nbody\r\n", "Subject: second\r\n\r\n"));
  EXPECT_EQ(sink.connections(), 1u);
  EXPECT_EQ(testing_host::entryCount(bench.folder / "spool"), 0u);
  EXPECT_THAT(bench.log.takeLines(1), IsEmpty());
  EXPECT_EQ(bench.runOnce(kFiled + 1).sent, 0u);
}

TEST(SubmissionWorker, SendsEachKindToItsServer) {
  SmtpSink scanning;
  SmtpSink plain;
  SpoolBench bench(&plain);
  bench.settings.scan = scanning.destination();
  bench.file(kResentKind, {"a@example.com"}, "Subject: resent\r\n\r\n");
  bench.file(kDeliveredKind, {"a@example.com"}, "Subject: delivered\r\n\r\n");
  EXPECT_EQ(bench.runOnce(kFiled).sent, 2u);
  EXPECT_THAT(scanning.messages(), ElementsAre("Subject: resent\r\n\r\n"));
  EXPECT_THAT(plain.messages(), ElementsAre("Subject: delivered\r\n\r\n"));
}

TEST(SubmissionWorker, ServerThatIsNotSetIsWaitedFor) {
  SpoolBench bench;
  const std::string id = bench.file(kResentKind);
  EXPECT_EQ(bench.runOnce(kFiled).deferred, 1u);
  EXPECT_EQ(bench.show(id).state.code, static_cast<unsigned int>(AdapterError::NoDestination));
}

constexpr char kMarked[] =
    "Subject: marked\r\nX-kavi-reprocess-rules: 15\r\nX-kavi-reprocess-type: readdress\r\n\r\n"
    "body\r\n";

TEST(SubmissionWorker, SealsWhatGoesBackToScanning) {
  SmtpSink sink;
  SpoolBench bench(&sink);
  bench.file(kResentKind, {"b@example.com", "a@example.com"}, kMarked);
  ASSERT_EQ(bench.runOnce(kFiled).sent, 1u);
  auto message = host::message::Message::parse(
      host::message::Buffer::copyOf("Received: from gateway\r\n" + sink.lastMessage()));
  message->setEnvelope({"sender@example.org", {"a@example.com", "b@example.com"}, ""});
  Reprocessing found;
  ASSERT_EQ(admitReprocessing(*message, ReprocessTrust::Sealed, &bench.keys, kFiled + 60, found),
            AdapterError::None);
  EXPECT_TRUE(found.honoured) << found.refusal;
  EXPECT_THAT(found.rules, ElementsAre(15));
  EXPECT_EQ(found.passes, 1u);
}

TEST(SubmissionWorker, TakesTheFieldsOutOfWhatGoesElsewhere) {
  SmtpSink sink;
  SpoolBench bench(&sink);
  bench.file(kDeliveredKind, {"a@example.com"}, kMarked);
  ASSERT_EQ(bench.runOnce(kFiled).sent, 1u);
  EXPECT_THAT(sink.messages(), ElementsAre("Subject: marked\r\n\r\nbody\r\n"));
}

TEST(SubmissionWorker, MessageThatCameBackTooOftenFails) {
  SmtpSink sink;
  SpoolBench bench(&sink);
  testing_host::PlainMessage message(kMarked);
  message.setEnvelope("s@example.org", {"a@example.com"});
  SpoolEntry entry;
  entry.kind = kResentKind;
  entry.queuedAt = kFiled;
  entry.window = kAnyTime;
  entry.passes = 5;
  std::string id;
  ASSERT_EQ(bench.spool.put(entry, message, id), AdapterError::None);
  EXPECT_EQ(bench.runOnce(kFiled).failed, 1u);
  EXPECT_EQ(bench.show(id).state.code, static_cast<unsigned int>(AdapterError::TooManyPasses));
  EXPECT_EQ(sink.connections(), 0u);
  EXPECT_THAT(bench.log.takeLines(1), ElementsAre(HasSubstr("too many passes")));
}

TEST(SubmissionWorker, KeyThatCannotBeReadIsWaitedFor) {
  SmtpSink sink;
  SpoolBench bench(&sink);
  testing_host::writeFile(bench.folder / "reprocess.keys", "nonsense\n");
  const std::string id = bench.file(kResentKind, {"a@example.com"}, kMarked);
  EXPECT_EQ(bench.runOnce(kFiled).deferred, 1u);
  EXPECT_EQ(bench.show(id).state.code, static_cast<unsigned int>(AdapterError::KeyUnavailable));
  EXPECT_EQ(testing_host::contentOf(bench.folder / "reprocess.keys"), "nonsense\n");
  EXPECT_EQ(sink.connections(), 0u);
}

class SubmissionStages : public ::testing::TestWithParam<StageCase> {};

TEST_P(SubmissionStages, LeaveTheMessageInItsState) {
  const StageCase& tested = GetParam();
  SmtpSink sink("{\"at\": {\"" + tested.stage + "\": " + tested.action + "}}");
  SpoolBench bench(&sink);
  std::string bytes = "Subject: x\r\n\r\n";
  if (tested.stage == "body") {
    for (int line = 0; line < 500'000; ++line) bytes += "a line of the body, and another one\r\n";
  }
  const std::string id = bench.file(kDeliveredKind, {"a@example.com", "b@example.com"}, bytes);
  const SubmissionCounts counts = bench.runOnce(kFiled);
  EXPECT_EQ(counts.sent, 0u);
  EXPECT_EQ(counts.failed, tested.isFinal ? 1u : 0u);
  EXPECT_EQ(counts.deferred, tested.isFinal ? 0u : 1u);
  const SpoolItem item = bench.show(id);
  EXPECT_EQ(item.condition,
            tested.isFinal ? SpoolItem::Condition::Failed : SpoolItem::Condition::Waiting);
  EXPECT_EQ(item.state.attempts, 1u);
  EXPECT_EQ(item.state.code, static_cast<unsigned int>(tested.error)) << item.state.text;
  EXPECT_EQ(item.state.isPossiblyDoubled(), tested.isUncertain) << item.state.text;
  EXPECT_THAT(item.state.text, HasSubstr(sink.destination().text()));
  const bool hasReply = tested.action.starts_with("{\"reply");
  if (hasReply) {
    const std::string reply = tested.action.substr(11, tested.action.size() - 13);
    EXPECT_THAT(item.state.text, HasSubstr(reply));
    if (tested.stage == "rcpt2") {
      EXPECT_THAT(item.state.text, HasSubstr("<b@example.com>"));
    }
  }
  const auto failures = bench.log.takeLines(1);
  if (tested.isFinal) {
    EXPECT_THAT(failures, ElementsAre(AllOf(HasSubstr(id), HasSubstr("550 5.7.1 no"),
                                            HasSubstr("<a@example.com>, <b@example.com>"))));
  } else {
    EXPECT_THAT(failures, IsEmpty());
    EXPECT_GE(item.due, kFiled + 60);
  }
  EXPECT_THAT(sink.messages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, SubmissionStages, ::testing::ValuesIn(testing_host::stageCases()),
                         [](const auto& tested) { return tested.param.name; });

TEST(SubmissionWorker, TriesAgainAfterGrowingPauses) {
  SmtpSink sink(R"({"at": {"mail": {"reply": "450 4.2.1 busy"}}})");
  SpoolBench bench(&sink);
  const std::string id = bench.file();
  std::int64_t now = kFiled;
  for (const std::int64_t pause : {60, 120, 240, 480, 960, 1920, 3600, 3600}) {
    if (now != kFiled) {
      EXPECT_EQ(bench.runOnce(now - 1).deferred, 0u);
    }
    const SubmissionCounts counts = bench.runOnce(now);
    EXPECT_EQ(counts.deferred, 1u);
    const std::int64_t due = counts.nextDue.value_or(0);
    // The attempt itself takes a moment.
    EXPECT_GE(due, now + pause);
    EXPECT_LE(due, now + pause + 2);
    EXPECT_EQ(bench.show(id, now).due, due);
    now = due;
  }
  EXPECT_EQ(bench.show(id).state.attempts, 8u);
}

TEST(SubmissionWorker, GivesUpInTheEnd) {
  SmtpSink sink(R"({"at": {"mail": {"reply": "450 4.2.1 busy"}}})");
  SpoolBench bench(&sink);
  const std::string id = bench.file();
  // It lay there for long before anybody tried.
  const std::int64_t first = kFiled + 10 * bench.settings.retry.giveUpAfter;
  EXPECT_EQ(bench.runOnce(first).deferred, 1u);
  EXPECT_EQ(bench.runOnce(first + bench.settings.retry.giveUpAfter - 10).deferred, 1u);
  EXPECT_EQ(bench.runOnce(first + bench.settings.retry.giveUpAfter + 7200).failed, 1u);
  const SpoolItem item = bench.show(id);
  EXPECT_EQ(item.condition, SpoolItem::Condition::Failed);
  EXPECT_EQ(item.state.code, static_cast<unsigned int>(AdapterError::GaveUp));
  EXPECT_THAT(item.state.text, HasSubstr("450 4.2.1 busy"));
  EXPECT_THAT(bench.log.takeLines(1), ElementsAre(HasSubstr("given up")));
  EXPECT_EQ(bench.runOnce(first + 10'000'000).stuck, 1u);
}

TEST(SubmissionWorker, TellsItsObserverOfEveryAttempt) {
  SmtpSink scanning(R"({"at": {"rcpt1": {"reply": "450 4.2.1 full", "times": 1}}})");
  SmtpSink plain(R"({"at": {"mail": {"reply": "550 5.7.1 no", "times": 1}}})");
  SpoolBench bench(&plain);
  bench.settings.scan = scanning.destination();
  bench.file(kResentKind);
  bench.file(kDeliveredKind);
  bench.file(kDeliveredKind);
  testing_host::Attempts attempts;
  SubmissionWorker worker(bench.spool, bench.settings, bench.keys, nullptr);
  worker.observe(&attempts);
  worker.runOnce(kFiled);
  worker.runOnce(kFiled + 300);
  EXPECT_THAT(attempts.told,
              ElementsAre("scan deferred", "plain refused", "plain sent", "scan sent"));
}

TEST(SubmissionWorker, ServerThatIsDownIsTriedOnceInARun) {
  SmtpSink down(R"({"at": {"connect": {"reply": "421 4.3.2 later"}}})");
  SmtpSink up;
  SpoolBench bench(&down);
  bench.settings.scan = up.destination();
  for (int count = 0; count < 5; ++count) bench.file();
  bench.file(kResentKind);
  const SubmissionCounts counts = bench.runOnce(kFiled);
  EXPECT_EQ(counts.deferred, 1u);
  EXPECT_EQ(counts.skipped, 4u);
  EXPECT_EQ(counts.sent, 1u);
  EXPECT_EQ(down.connections(), 1u);
  // The next run asks again, with the next message.
  EXPECT_EQ(bench.runOnce(kFiled + 1).skipped, 3u);
  EXPECT_EQ(down.connections(), 2u);
}

TEST(SubmissionWorker, OneMessageInTheWayHoldsNoOtherUp) {
  SmtpSink sink(R"({"at": {"rcpt1": {"reply": "450 4.2.1 full", "times": 1}}})");
  SpoolBench bench(&sink);
  bench.file();
  bench.file();
  const SubmissionCounts counts = bench.runOnce(kFiled);
  EXPECT_EQ(counts.deferred, 1u);
  EXPECT_EQ(counts.sent, 1u);
}

TEST(SubmissionWorker, DamagedEntryFailsAndIsLeftAsItIs) {
  SmtpSink sink;
  SpoolBench bench(&sink);
  const std::string id = bench.file();
  const std::string path = bench.folder / ("spool/" + id + ".msg");
  const std::string cut = testing_host::contentOf(path).substr(0, 100);
  testing_host::writeFile(path, cut);
  EXPECT_EQ(bench.runOnce(kFiled).failed, 1u);
  EXPECT_EQ(bench.show(id).condition, SpoolItem::Condition::Damaged);
  EXPECT_THAT(bench.log.takeLines(1), ElementsAre(HasSubstr("damaged")));
  EXPECT_EQ(testing_host::contentOf(path), cut);
  EXPECT_EQ(bench.runOnce(kFiled + 100'000).stuck, 1u);
}

/// A disk that does not let entries be removed, or says so though they are.
class ClingingDisk final : public host::core::FileOps {
 public:
  enum class Fault { None, KeepsEntriesAndLogs, FlushesNoRemoval };
  int unlink(int folder, const std::string& name) override {
    const bool isEntry = name.ends_with(".msg");
    if (isEntry && fault == Fault::KeepsEntriesAndLogs) return -EIO;
    removing_ = isEntry;
    return FileOps::unlink(folder, name);
  }
  int sync(int descriptor) override {
    const bool fails = removing_ && fault == Fault::FlushesNoRemoval;
    removing_ = false;
    return fails ? -EIO : FileOps::sync(descriptor);
  }
  ssize_t write(int file, const char* data, std::size_t size) override {
    const bool isEnd = std::string_view(data, size).find("\"sent\"") != std::string_view::npos;
    if (isEnd && fault == Fault::KeepsEntriesAndLogs) return -EIO;
    return FileOps::write(file, data, size);
  }
  Fault fault = Fault::None;

 private:
  bool removing_ = false;
};

TEST(SubmissionWorker, SentMessageThatCannotBeRemovedIsNotSentAgain) {
  SmtpSink sink;
  ClingingDisk ops;
  SpoolBench bench(&sink, ops);
  bench.file();
  SubmissionWorker worker(bench.spool, bench.settings, bench.keys, &bench.log);
  ops.fault = ClingingDisk::Fault::KeepsEntriesAndLogs;
  EXPECT_EQ(worker.runOnce(kFiled).sent, 1u);
  EXPECT_THAT(bench.log.takeLines(1), ElementsAre(HasSubstr("nor can that be written down")));
  EXPECT_EQ(worker.runOnce(kFiled + 9999).troubled, 1u);
  EXPECT_THAT(bench.log.takeLines(1), ElementsAre(HasSubstr("Cannot work at message")));
  ops.fault = ClingingDisk::Fault::None;
  EXPECT_EQ(worker.runOnce(kFiled + 99'999).sent, 0u);
  EXPECT_EQ(testing_host::entryCount(bench.folder / "spool"), 0u);
  EXPECT_THAT(sink.messages(), SizeIs(1));
}

TEST(SubmissionWorker, RemovalThatWasNotFlushedIsFlushedLater) {
  SmtpSink sink;
  ClingingDisk ops;
  SpoolBench bench(&sink, ops);
  const std::string id = bench.file();
  SubmissionWorker worker(bench.spool, bench.settings, bench.keys, &bench.log);
  ops.fault = ClingingDisk::Fault::FlushesNoRemoval;
  for (int run = 0; run < 2; ++run) {
    worker.runOnce(kFiled);
    const std::string log = testing_host::contentOf(bench.folder / ("spool/" + id + ".log"));
    EXPECT_THAT(log, HasSubstr("\"sent\"")) << "after a power cut the entry is back, and this, too";
  }
  EXPECT_THAT(bench.log.takeLines(1), ElementsAre(HasSubstr("which is tried again")));
  ops.fault = ClingingDisk::Fault::None;
  worker.runOnce(kFiled);
  EXPECT_EQ(testing_host::entryCount(bench.folder / "spool"), 0u);
  EXPECT_THAT(sink.messages(), SizeIs(1));
}

TEST(SubmissionWorker, DamagedMessageThatWasSentIsRemoved) {
  SpoolBench bench;
  const std::string id = bench.file();
  ASSERT_EQ(
      bench.spool.appendLog(id, writeSpoolEvent({SpoolEvent::Kind::Sent, kFiled, 0, {}, 0, false})),
      AdapterError::None);
  testing_host::writeFile(bench.folder / ("spool/" + id + ".msg"), "nonsense");
  EXPECT_EQ(bench.runOnce(kFiled).failed, 0u);
  EXPECT_EQ(testing_host::entryCount(bench.folder / "spool"), 0u);
}

TEST(SubmissionWorker, AddressesInAnEntryAreCheckedAgain) {
  SmtpSink sink;
  SpoolBench bench(&sink);
  const std::string id = bench.file(kDeliveredKind, {"a@b.test\r\nDATA"});
  EXPECT_EQ(bench.runOnce(kFiled).failed, 1u);
  EXPECT_EQ(bench.show(id).state.code, static_cast<unsigned int>(AdapterError::BadAddress));
  EXPECT_EQ(sink.connections(), 0u);
  EXPECT_THAT(bench.log.takeLines(1), ElementsAre(Not(HasSubstr("\r\n"))));
}

TEST(SubmissionWorker, ManyWorkersSendEachMessageOnce) {
  SmtpSink sink;
  SpoolBench bench(&sink);
  constexpr std::size_t kMessages = 40;
  for (std::size_t count = 0; count < kMessages; ++count) bench.file();
  std::vector<std::thread> threads;
  std::atomic<std::size_t> sent = 0;
  for (int index = 0; index < 4; ++index) {
    threads.emplace_back([&] {
      Spool spool;
      ASSERT_EQ(spool.open(bench.folder / "spool"), AdapterError::None);
      SubmissionWorker worker(spool, bench.settings, bench.keys, nullptr);
      sent += worker.runOnce(kFiled).sent;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(sent, kMessages);
  EXPECT_THAT(sink.messages(), SizeIs(kMessages));
  EXPECT_EQ(bench.entries(), 0u);
}

TEST(SubmissionWorker, RunsUntilItIsStopped) {
  SmtpSink sink;
  SpoolBench bench(&sink);
  bench.file();
  SubmissionWorker worker(bench.spool, bench.settings, bench.keys, nullptr);
  std::jthread thread(
      [&](const std::stop_token& stop) { worker.run(stop, std::chrono::hours(1)); });
  const auto waitForMessages = [&](std::size_t count) {
    for (int tries = 0; tries < 2000 && sink.messages().size() < count; ++tries) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return sink.messages().size() == count;
  };
  EXPECT_TRUE(waitForMessages(1));
  bench.file();
  worker.wake();
  EXPECT_TRUE(waitForMessages(2));
  thread.request_stop();
  thread.join();
}

TEST(SpoolControl, ListsShowsRetriesAndDeletes) {
  SmtpSink sink(R"({"at": {"rcpt2": {"reply": "550 5.1.1 unknown", "times": 2}}})");
  SpoolBench bench(&sink);
  SpoolControl control(bench.spool, bench.settings.retry);
  const std::string first = bench.file();
  const std::string second = bench.file();
  EXPECT_EQ(bench.runOnce(kFiled).failed, 2u);
  const std::string third = bench.file(kResentKind, {"c@example.com"});
  EXPECT_THAT(bench.log.takeLines(1), SizeIs(2));

  std::vector<SpoolItem> items;
  ASSERT_EQ(control.list(items), AdapterError::None);
  ASSERT_THAT(items, SizeIs(3));
  EXPECT_EQ(items[0].id, first);
  EXPECT_EQ(items[0].condition, SpoolItem::Condition::Failed);
  EXPECT_THAT(items[0].state.text, HasSubstr("recipient refused at RCPT TO <b@example.com>"));
  EXPECT_THAT(items[0].state.text, HasSubstr("550 5.1.1 unknown"));
  EXPECT_EQ(items[2].condition, SpoolItem::Condition::Waiting);
  EXPECT_EQ(items[2].due, kFiled);
  SpoolSummary summary;
  ASSERT_EQ(control.summarise(summary), AdapterError::None);
  EXPECT_EQ(summary.failed, 2u);
  EXPECT_EQ(summary.due, 1u);
  EXPECT_EQ(summary.waiting, 0u);
  EXPECT_EQ(summary.oldest, kFiled);

  ASSERT_EQ(control.remove(third), AdapterError::None);
  EXPECT_EQ(control.remove(third), AdapterError::NotFound);
  EXPECT_EQ(control.retry(third, kFiled), AdapterError::NotFound);
  ASSERT_EQ(control.retry(first, kFiled + 10), AdapterError::None);
  const SubmissionCounts counts = bench.runOnce(kFiled + 10);
  EXPECT_EQ(counts.sent, 1u);
  EXPECT_EQ(counts.stuck, 1u);
  SpoolItem item;
  std::vector<SpoolEvent> events;
  EXPECT_EQ(control.show(first, item, events), AdapterError::NotFound);
  ASSERT_EQ(control.show(second, item, events), AdapterError::None);
  ASSERT_THAT(events, SizeIs(2));
  EXPECT_EQ(events[0].kind, SpoolEvent::Kind::Attempt);
  EXPECT_EQ(events[1].kind, SpoolEvent::Kind::Failed);
  ASSERT_EQ(control.remove(second), AdapterError::None);
  EXPECT_EQ(testing_host::entryCount(bench.folder / "spool"), 0u);
}

TEST(SpoolControl, LeavesAloneWhatIsBeingSent) {
  SpoolBench bench;
  SpoolControl control(bench.spool);
  const std::string id = bench.file();
  host::core::Descriptor hold;
  ASSERT_EQ(bench.spool.hold(id, hold), AdapterError::None);
  EXPECT_EQ(control.retry(id, kFiled), AdapterError::UnderWay);
  EXPECT_EQ(control.remove(id), AdapterError::UnderWay);
  EXPECT_EQ(bench.runOnce(kFiled).busy, 1u);
  hold.reset();
  EXPECT_EQ(control.remove(id), AdapterError::None);
}

TEST(SpoolControl, TellsWhatIsBeingSentFromWhatWasCutOff) {
  SpoolBench bench;
  const std::string id = bench.file();
  ASSERT_EQ(bench.spool.appendLog(
                id, writeSpoolEvent({SpoolEvent::Kind::Attempt, kFiled + 1, 0, {}, 0, false})),
            AdapterError::None);
  host::core::Descriptor hold;
  ASSERT_EQ(bench.spool.hold(id, hold), AdapterError::None);
  SpoolItem item = bench.show(id, kFiled + 2);
  EXPECT_EQ(item.condition, SpoolItem::Condition::Sending);
  EXPECT_EQ(item.due, 0);
  EXPECT_FALSE(item.isPossiblyDoubled());
  SpoolSummary summary;
  ASSERT_EQ(SpoolControl(bench.spool).summarise(summary), AdapterError::None);
  EXPECT_EQ(summary.sending, 1u);

  hold.reset();  // as when its process is killed
  item = bench.show(id, kFiled + 2);
  EXPECT_EQ(item.condition, SpoolItem::Condition::Waiting);
  EXPECT_EQ(item.due, kFiled + 1 + bench.settings.retry.firstPause);
  EXPECT_TRUE(item.isPossiblyDoubled());
  // To look at it keeps nobody from working at it.
  EXPECT_EQ(bench.spool.hold(id, hold), AdapterError::None);
}

TEST(SpoolControl, DamagedEntryCanBeDeleted) {
  SpoolBench bench;
  SpoolControl control(bench.spool);
  const std::string id = bench.file();
  testing_host::writeFile(bench.folder / ("spool/" + id + ".msg"), "nonsense");
  SpoolSummary summary;
  ASSERT_EQ(control.summarise(summary), AdapterError::None);
  EXPECT_EQ(summary.damaged, 1u);
  EXPECT_EQ(control.retry(id, kFiled), AdapterError::Damaged);
  EXPECT_EQ(control.remove(id), AdapterError::None);
}

TEST(SpoolControl, LogsWithoutEntryAreSweptUp) {
  SpoolBench bench;
  const std::string id = bench.file();
  ASSERT_EQ(bench.spool.appendLog(id, "{}"), AdapterError::None);
  ASSERT_EQ(bench.spool.appendLog("0123abcd", "{}"), AdapterError::None);
  testing_host::writeFile(bench.folder / "spool/README.log", "not ours");
  Spool again;
  ASSERT_EQ(again.open(bench.folder / "spool"), AdapterError::None);
  EXPECT_EQ(testing_host::entryCount(bench.folder / "spool"), 3u);
  EXPECT_EQ(testing_host::contentOf(bench.folder / ("spool/" + id + ".log")), "{}\n");
}

}  // namespace
