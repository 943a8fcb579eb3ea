// Holding a message back: its entry in the spool, and its row in the index.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "host/message/message.h"
#include "tests/fakes/capturing_log.h"
#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using namespace host::delivery;
using host::message::Buffer;
using host::message::Message;
using host::store::IndexEntry;
using host::store::MessageKind;
using testing_host::filesBelow;
using testing_host::FilingBench;
using testing_host::Tokens;
using Files = std::vector<std::string>;

class Postpone : public ::testing::Test {
 protected:
  // A first attempt of the engine, for a rule.
  AdapterError attempt(OvMsgMailMessage& message, const std::string& received,
                       const std::string& rule = "15", unsigned int passes = 0,
                       FinalAnswer answer = FinalAnswer::TemporaryFailure) {
    LocalAdapter adapter(bench_.state, settings_, &log_);
    Tokens tokens;
    if (!rule.empty()) tokens.set(Kavi::ScanToken::RuleId, rule);
    adapter.setPasses(passes);
    EXPECT_EQ(adapter.beginMessage(message, received, tokens), AdapterError::None);
    EXPECT_EQ(adapter.beginAction(15, 0, "8:30"), AdapterError::None);
    unsigned int error = 99;
    const int result = adapter.postponeMessage(error, &message, 8, 30, 23, 59);
    EXPECT_EQ(result == 0, error == 0);
    EXPECT_EQ(adapter.finalAnswer(answer), AdapterError::None);
    return static_cast<AdapterError>(error);
  }
  AdapterError attempt() { return attempt(bench_.message, bench_.message.bytes()); }

  Files ids() {
    Files found;
    EXPECT_EQ(bench_.state.spool().list(found), AdapterError::None);
    return found;
  }
  std::string spool() const { return bench_.temp / "state/spool"; }

  FilingBench bench_;
  fakes::CapturingLog log_;
  DeliverySettings* settings_ = nullptr;
};

TEST_F(Postpone, KeepsTheMessageAndWhatIsNeededToSendItBack) {
  ASSERT_EQ(attempt(bench_.message, bench_.message.bytes(), "15", 2), AdapterError::None);
  ASSERT_EQ(ids().size(), 1u);
  SpoolEntry entry;
  std::string bytes;
  ASSERT_EQ(bench_.state.spool().read(ids()[0], entry, bytes), AdapterError::None);
  EXPECT_EQ(bytes, bench_.message.bytes()) << "as it came";
  EXPECT_EQ(entry.kind, kPostponedKind);
  EXPECT_EQ(entry.rule, 15u);
  EXPECT_EQ(entry.passes, 2u);
  EXPECT_EQ(entry.window, (TimeWindow{8, 30, 23, 59}));
  EXPECT_TRUE(entry.isForScanning());
}

TEST_F(Postpone, WritesARow) {
  const std::string bytes = "Subject: =?utf-8?q?gr=C3=BC=C3=9Fe?=\r\n\r\nbody\r\n";
  const auto message = Message::parse(Buffer::copyOf(bytes));
  message->setEnvelope({"a@example.org", {"b@example.org", "c@example.org"}, {}});
  const std::time_t before = std::time(nullptr);
  ASSERT_EQ(attempt(*message, bytes), AdapterError::None);
  const auto rows = bench_.rows();
  ASSERT_EQ(rows.size(), 1u);
  char host[256] = {};
  ASSERT_EQ(::gethostname(host, sizeof host - 1), 0);
  IndexEntry expected;
  expected.row = rows[0].row;
  expected.kind = MessageKind::Postponed;
  expected.area = host;
  expected.messageId = message->id();
  expected.rule = "15";
  expected.sender = "a@example.org";
  expected.recipients = {"b@example.org", "c@example.org"};
  expected.subject = "grüße";
  expected.size = bytes.size();
  expected.storedAt = rows[0].storedAt;
  expected.path = spool() + "/" + ids().at(0) + ".msg";
  EXPECT_EQ(rows[0], expected);
  EXPECT_GE(rows[0].storedAt, before);
  EXPECT_LE(rows[0].storedAt, std::time(nullptr));
}

TEST_F(Postpone, WithoutARuleItIsNotForScanning) {
  for (const char* rule : {"", "x", "0", "-1", "4294967296"}) {
    FilingBench fresh;
    LocalAdapter adapter(fresh.state);
    Tokens tokens;
    tokens.set(Kavi::ScanToken::RuleId, rule);
    ASSERT_EQ(adapter.beginMessage(fresh.message, {}, tokens), AdapterError::None);
    unsigned int error = 99;
    ASSERT_EQ(adapter.postponeMessage(error, &fresh.message, 8, 30, 23, 59), 0);
    Files found;
    ASSERT_EQ(fresh.state.spool().list(found), AdapterError::None);
    SpoolEntry entry;
    ASSERT_EQ(fresh.state.spool().readHead(found.at(0), entry), AdapterError::None);
    EXPECT_EQ(entry.rule, 0u) << rule;
    EXPECT_FALSE(entry.isForScanning()) << rule;
    EXPECT_EQ(fresh.rows().at(0).rule, "");
  }
}

TEST_F(Postpone, RefusesWhatCouldNeverBeSentBack) {
  DeliverySettings settings;
  settings_ = &settings;
  settings.plain.host = "192.0.2.1";
  EXPECT_EQ(attempt(), AdapterError::NoDestination);
  settings.scan.host = "192.0.2.1";
  bench_.message.setEnvelope("a@example.org", {"b@example.org\r\nDATA"});
  EXPECT_EQ(attempt(), AdapterError::BadAddress);
  EXPECT_EQ(ids(), Files{});
  EXPECT_TRUE(bench_.rows().empty());
  EXPECT_EQ(log_.takeLines(1).size(), 2u);
  bench_.message.setEnvelope("a@example.org", {"b@example.org"});
  EXPECT_EQ(attempt(), AdapterError::None);
}

TEST_F(Postpone, LeavesNothingWhereverAFileOperationFails) {
  int failures = 0;
  for (unsigned int call = 1;; ++call) {
    bench_.ops.failCall(call, ENOSPC);
    const AdapterError outcome = attempt();
    const bool fired = bench_.ops.fired();
    bench_.ops.failCall(0, 0);
    if (!fired) {
      EXPECT_EQ(outcome, AdapterError::None);
      break;
    }
    ++failures;
    EXPECT_EQ(outcome, AdapterError::DiskFull) << call;
    EXPECT_EQ(filesBelow(spool()), Files{}) << call;
    EXPECT_TRUE(bench_.rows().empty()) << call;
  }
  EXPECT_EQ(failures, 6);
  EXPECT_EQ(ids().size(), 1u);
  EXPECT_EQ(bench_.rows().size(), 1u);
}

// Each call on the index fails in turn, before it did anything or behind it. What reported failure
// is not in the spool, and the retry has the message there once, with its row.
TEST_F(Postpone, EndsWithOneMessageWhereverTheIndexFails) {
  using Moment = testing_host::FailingStore::Moment;
  for (const Moment moment : {Moment::Before, Moment::Behind}) {
    unsigned int call = 1;
    for (bool fired = true; fired; ++call) {
      FilingBench bench;
      const auto run = [&] {
        LocalAdapter adapter(bench.state);
        Tokens tokens;
        tokens.set(Kavi::ScanToken::RuleId, "15");
        EXPECT_EQ(adapter.beginMessage(bench.message, bench.message.bytes(), tokens),
                  AdapterError::None);
        EXPECT_EQ(adapter.beginAction(15, 0, "8:30"), AdapterError::None);
        unsigned int error = 0;
        adapter.postponeMessage(error, &bench.message, 8, 30, 23, 59);
        adapter.finalAnswer(FinalAnswer::TemporaryFailure);
        return static_cast<AdapterError>(error);
      };
      bench.store->failCall(call, moment);
      const AdapterError first = run();
      fired = bench.store->fired();
      bench.store->failCall(0);
      const std::string spool = bench.temp / "state/spool";
      if (first != AdapterError::None) {
        EXPECT_EQ(first, AdapterError::IndexUnavailable);
        EXPECT_EQ(filesBelow(spool), Files{}) << call;
        EXPECT_TRUE(bench.rows().empty()) << call;
      }
      const AdapterError second = run();
      // A lost answer leaves the effect claimed until the lease is out.
      const bool waits = second == AdapterError::UnderWay;
      EXPECT_TRUE(waits || second == AdapterError::None);
      const std::size_t expected = waits && first != AdapterError::None ? 0 : 1;
      EXPECT_EQ(filesBelow(spool).size(), expected) << call;
      EXPECT_EQ(bench.rows().size(), expected) << call;
    }
    EXPECT_GT(call, 4u);
  }
}

// A spool whose index goes away between its opening and the first message.
struct SpoolLosingItsIndex {
  explicit SpoolLosingItsIndex(host::core::FileOps& ops) : state(ops, store) {}

  int postpone(unsigned int& error, OvMsgMailMessage& message) {
    EXPECT_EQ(state.open(temp.path()), AdapterError::None);
    LocalAdapter adapter(state);
    store->failAll(host::store::StoreError::Unavailable);
    return adapter.postponeMessage(error, &message, 8, 30, 23, 59);
  }

  const testing_host::TempFolder temp;
  const std::shared_ptr<testing_host::FailingStore> store =
      std::make_shared<testing_host::FailingStore>();
  DeliveryState state;
};

// A disk on which nothing can be removed while the index is down: the message will go out from
// here, so its sender must not be told to send it again.
TEST_F(Postpone, IsAcceptedWhenItCannotBeTakenBack) {
  class KeepingOps final : public host::core::FileOps {
    int unlink(int, const std::string&) override { return -EROFS; }
  } ops;
  SpoolLosingItsIndex spool(ops);
  unsigned int error = 99;
  EXPECT_EQ(spool.postpone(error, bench_.message), 0);
  EXPECT_EQ(filesBelow(spool.temp / "spool").size(), 1u);
  spool.store->recover();
  SpoolSweepReport report;
  std::string fault;
  ASSERT_EQ(spool.state.prepareSpool(report, fault), AdapterError::None);
  EXPECT_EQ(report.rowsAdded, 1u);
}

// The disk fails right behind the removal while the index is down: the removal reports failure,
// and yet nothing is left to go out from here. The sender must keep the message.
TEST_F(Postpone, FailsWhenItIsGoneThoughItsRemovalReportsFailure) {
  class ForgetfulOps final : public host::core::FileOps {
   public:
    bool removed = false;

   private:
    int unlink(int folder, const std::string& name) override {
      removed = true;
      return FileOps::unlink(folder, name);
    }
    int sync(int descriptor) override { return removed ? -EIO : FileOps::sync(descriptor); }
  } ops;
  SpoolLosingItsIndex spool(ops);
  unsigned int error = 0;
  EXPECT_NE(spool.postpone(error, bench_.message), 0);
  EXPECT_EQ(static_cast<AdapterError>(error), AdapterError::Uncertain);
  EXPECT_TRUE(ops.removed);
  EXPECT_EQ(filesBelow(spool.temp / "spool"), Files{});
}

TEST_F(Postpone, ARetryFindsItAndItsRow) {
  ASSERT_EQ(attempt(), AdapterError::None);
  const Files first = ids();
  ASSERT_EQ(attempt(), AdapterError::None);
  EXPECT_EQ(ids(), first);
  EXPECT_EQ(bench_.rows().size(), 1u);
  // Answered, the same message is a new one.
  ASSERT_EQ(attempt(bench_.message, bench_.message.bytes(), "15", 0, FinalAnswer::Discarded),
            AdapterError::None);
  ASSERT_EQ(attempt(), AdapterError::None);
  EXPECT_EQ(ids().size(), 2u);
  EXPECT_EQ(bench_.rows().size(), 2u);
}

}  // namespace
