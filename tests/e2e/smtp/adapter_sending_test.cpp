// The real adapter's operations that send.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/core/ini_settings.h"
#include "host/delivery/delivery_state.h"
#include "host/delivery/local_adapter.h"
#include "tests/e2e/smtp/stage_cases.h"
#include "tests/e2e/smtp/submission_test.h"

namespace {

using namespace host::delivery;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using testing_host::PlainMessage;
using testing_host::SmtpSink;
using testing_host::StageCase;
using testing_host::TempFolder;

class AdapterSending : public ::testing::Test {
 protected:
  AdapterSending() {
    EXPECT_EQ(state_.open(folder_ / "state"), AdapterError::None);
    settings_.helloName = "gateway.example.org";
    settings_.timeouts = {1000, 1000, 4000};
    settings_.handoffDeadlineMs = 3000;
    settings_.scan.host = settings_.plain.host = "127.0.0.1";
    message_.setEnvelope("sender@example.org", {"a@example.com", "b@example.com"});
  }

  std::vector<SpoolItem> items() {
    std::vector<SpoolItem> items;
    EXPECT_EQ(SpoolControl(state_.spool()).list(items), AdapterError::None);
    return items;
  }

  // Hands off. \return the error code, after checking that the result says the same.
  AdapterError handOff(const std::string& host, int port) {
    LocalAdapter adapter(state_, &settings_, &log_);
    unsigned int error = 99;
    const int result = adapter.handoffMessage(error, &message_, host.c_str(), port);
    EXPECT_EQ(result != 0, error != 0);
    return static_cast<AdapterError>(error);
  }

  TempFolder folder_;
  DeliveryState state_;
  DeliverySettings settings_;
  fakes::CapturingLog log_;
  PlainMessage message_;
};

TEST_F(AdapterSending, HandsOffAtOnce) {
  SmtpSink sink;
  EXPECT_EQ(handOff("127.0.0.1", sink.port()), AdapterError::None);
  EXPECT_EQ(handOff("127.0.0.1", sink.port()), AdapterError::None);
  EXPECT_THAT(sink.messages(), ElementsAre(message_.bytes(), message_.bytes()));
  EXPECT_EQ(sink.connections(), 1u);
  EXPECT_THAT(items(), IsEmpty());
}

TEST_F(AdapterSending, TellsOfEveryHandOff) {
  testing_host::Attempts attempts;
  state_.observe(nullptr, &attempts);
  SmtpSink sink(R"({"at": {"rcpt1": {"reply": "550 5.1.1 unknown", "times": 1},
                           "data": {"reply": "451 4.3.0 later", "times": 1}}})");
  for (int count = 0; count < 3; ++count) handOff("127.0.0.1", sink.port());
  EXPECT_THAT(attempts.told, ElementsAre("handoff refused", "handoff deferred", "handoff sent"));
  EXPECT_THAT(log_.takeLines(1), ::testing::SizeIs(2));
}

TEST_F(AdapterSending, LargeMessageIsStreamed) {
  SmtpSink sink;
  std::string bytes = "Subject: large\n\n";
  for (int line = 0; line < 100'000; ++line) bytes += ".a line\n";
  message_ = PlainMessage(bytes);
  message_.setEnvelope("", {"a@example.com"});
  settings_.handoffDeadlineMs = 60'000;
  EXPECT_EQ(handOff("127.0.0.1", sink.port()), AdapterError::None);
  EXPECT_EQ(sink.lastMessage().size(), bytes.size() + 100'002);
}

class AdapterStages : public AdapterSending, public ::testing::WithParamInterface<StageCase> {};

TEST_P(AdapterStages, AnswerTheirCode) {
  const StageCase& tested = GetParam();
  if (tested.stage == "body") return;  // SmtpStages has it; this message is too small for it
  SmtpSink sink("{\"at\": {\"" + tested.stage + "\": " + tested.action + "}}");
  EXPECT_EQ(handOff("127.0.0.1", sink.port()),
            tested.isUncertain ? AdapterError::Uncertain : tested.error);
  const auto failures = log_.takeLines(1);
  ASSERT_THAT(failures, SizeIs(tested.isUncertain ? 2 : 1));
  EXPECT_THAT(failures[0], HasSubstr(sink.destination().text()));
  if (tested.isUncertain) {
    EXPECT_THAT(failures[1], HasSubstr("possibly doubled"));
  }
  EXPECT_THAT(sink.messages(), IsEmpty());
  EXPECT_THAT(items(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(All, AdapterStages, ::testing::ValuesIn(testing_host::stageCases()),
                         [](const auto& tested) { return tested.param.name; });

TEST_F(AdapterSending, HandOffEndsAtItsDeadline) {
  SmtpSink sink(R"({"at": {"data": {"do": "stall"}}})");
  settings_.timeouts = {60'000, 60'000, 60'000};
  settings_.handoffDeadlineMs = 500;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(handOff("127.0.0.1", sink.port()), AdapterError::TimedOut);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1500));
  EXPECT_THAT(log_.takeLines(1), SizeIs(1));
}

TEST_F(AdapterSending, RefusesUnusableHosts) {
  for (const char* host :
       {"", "a host", "a\r\nQUIT", "evil/path", "user@host", "[]", "[a b]", "-x"}) {
    EXPECT_NE(handOff(host, 25), AdapterError::None) << host;
  }
  for (const int port : {0, -1, 65536}) {
    EXPECT_EQ(handOff("127.0.0.1", port), AdapterError::InvalidArgument);
  }
  EXPECT_THAT(log_.takeLines(1), SizeIs(11));
  LocalAdapter adapter(state_, &settings_, &log_);
  unsigned int error = 0;
  EXPECT_NE(adapter.handoffMessage(error, &message_, nullptr, 25), 0);
  EXPECT_EQ(error, static_cast<unsigned int>(AdapterError::InvalidArgument));
  EXPECT_NE(adapter.handoffMessage(error, nullptr, "127.0.0.1", 25), 0);
}

TEST_F(AdapterSending, TakesAddressesWithAndWithoutBrackets) {
  SmtpSink sink;
  EXPECT_EQ(handOff("[127.0.0.1]", sink.port()), AdapterError::None);
  for (const char* host : {"[::1]", "::1"}) {
    // Nobody listens there; what counts is that the name is none that cannot be used.
    const AdapterError error = handOff(host, sink.port());
    EXPECT_TRUE(error == AdapterError::ConnectionRefused || error == AdapterError::Unreachable);
  }
  EXPECT_THAT(log_.takeLines(1), SizeIs(2));
}

TEST_F(AdapterSending, ResendAndDeliverFileTheMessageAndSendNothing) {
  LocalAdapter adapter(state_, &settings_, &log_);
  adapter.setPasses(2);
  unsigned int error = 99;
  EXPECT_EQ(adapter.resendMessage(error, &message_, 1), 0);
  EXPECT_EQ(error, 0u);
  EXPECT_EQ(adapter.deliverMessage(error, &message_), 0);
  const std::vector<SpoolItem> filed = items();
  ASSERT_THAT(filed, SizeIs(2));
  EXPECT_EQ(filed[0].entry.kind, "resend");
  EXPECT_EQ(filed[0].entry.passes, 2u);
  EXPECT_EQ(filed[1].entry.kind, "deliver");
  for (const SpoolItem& item : filed) {
    EXPECT_EQ(item.entry.envelope.sender, "sender@example.org");
    EXPECT_THAT(item.entry.envelope.recipients, ElementsAre("a@example.com", "b@example.com"));
    EXPECT_EQ(item.due, item.entry.queuedAt);
  }
}

TEST_F(AdapterSending, FiledMessagesAreSubmitted) {
  SmtpSink scanning;
  SmtpSink plain;
  settings_.scan = scanning.destination();
  settings_.plain = plain.destination();
  LocalAdapter adapter(state_, &settings_, &log_);
  unsigned int error = 0;
  ASSERT_EQ(adapter.resendMessage(error, &message_, 1), 0);
  ASSERT_EQ(adapter.deliverMessage(error, &message_), 0);
  const SealKeys keys(folder_ / "keys");
  SubmissionWorker worker(state_.spool(), settings_, keys, &log_);
  EXPECT_EQ(worker.runOnce(std::time(nullptr)).sent, 2u);
  EXPECT_THAT(scanning.messages(), ElementsAre(message_.bytes()));
  EXPECT_THAT(plain.messages(), ElementsAre(message_.bytes()));
}

TEST_F(AdapterSending, RefusesToFileWhatCouldNeverBeSent) {
  struct Case {
    std::vector<std::string> recipients;
    AdapterError error;
  };
  const Case cases[] = {{{}, AdapterError::NoRecipients},
                        {{"a@b.test\r\nDATA"}, AdapterError::BadAddress},
                        {{"a@b.test", "\xC3\xA4@b.test"}, AdapterError::Utf8Address}};
  LocalAdapter adapter(state_, &settings_, &log_);
  for (const Case& tested : cases) {
    message_.setEnvelope("s@example.org", tested.recipients);
    unsigned int error = 0;
    EXPECT_NE(adapter.resendMessage(error, &message_, 1), 0);
    EXPECT_EQ(error, static_cast<unsigned int>(tested.error));
    EXPECT_NE(adapter.deliverMessage(error, &message_), 0);
    EXPECT_EQ(error, static_cast<unsigned int>(tested.error));
    EXPECT_THAT(log_.takeLines(1), SizeIs(2));
  }
  settings_.plain.host.clear();
  message_.setEnvelope("s@example.org", {"a@b.test"});
  unsigned int error = 0;
  EXPECT_NE(adapter.deliverMessage(error, &message_), 0);
  EXPECT_EQ(error, static_cast<unsigned int>(AdapterError::NoDestination));
  EXPECT_THAT(log_.takeLines(1), SizeIs(1));
  EXPECT_THAT(items(), IsEmpty());
}

TEST_F(AdapterSending, WithoutSettingsNothingIsSent) {
  LocalAdapter adapter(state_);
  unsigned int error = 0;
  EXPECT_NE(adapter.handoffMessage(error, &message_, "127.0.0.1", 25), 0);
  EXPECT_EQ(error, static_cast<unsigned int>(AdapterError::NotAvailable));
  EXPECT_NE(adapter.resendMessage(error, &message_, 1), 0);
  EXPECT_EQ(error, static_cast<unsigned int>(AdapterError::NotAvailable));
  EXPECT_NE(adapter.deliverMessage(error, &message_), 0);
  EXPECT_EQ(error, static_cast<unsigned int>(AdapterError::NotAvailable));
}

// A process that was killed behind the server's answer, before it could write that down.
TEST_F(AdapterSending, HandOffThatWasCutOffIsPossiblyDoubled) {
  const Kavi::TokenMap<Kavi::ScanToken> tokens;
  MessageEffects killed(state_.store(), [] { return MessageEffects::systemClock() - 1000; });
  ASSERT_EQ(killed.beginMessage(message_, message_.bytes()), AdapterError::None);
  ASSERT_EQ(killed.beginAction(15, 0, "7"), AdapterError::None);
  MessageEffects::Ticket ticket;
  ASSERT_EQ(killed.begin("handoff", 60, {}, ticket), AdapterError::None);
  SmtpSink sink;
  for (int time = 0; time < 2; ++time) {
    LocalAdapter adapter(state_, &settings_, &log_);
    ASSERT_EQ(adapter.beginMessage(message_, message_.bytes(), tokens), AdapterError::None);
    ASSERT_EQ(adapter.beginAction(15, 0, "7"), AdapterError::None);
    unsigned int error = 99;
    EXPECT_EQ(adapter.handoffMessage(error, &message_, "127.0.0.1", sink.port()), 0);
    ASSERT_EQ(adapter.finalAnswer(FinalAnswer::TemporaryFailure), AdapterError::None);
  }
  EXPECT_THAT(sink.messages(), SizeIs(1));
  EXPECT_THAT(log_.takeLines(1), ElementsAre(HasSubstr("is possibly doubled")));
}

TEST_F(AdapterSending, HandOffShowsNoReprocessingFields) {
  SmtpSink sink;
  auto message = host::message::Message::parse(host::message::Buffer::copyOf(
      "Subject: x\nX-kavi-reprocess-type: readdress\nX-kavi-reprocess-rules: 15\n\nbody\n"));
  message->setEnvelope({"s@example.org", {"a@example.com"}, ""});
  LocalAdapter adapter(state_, &settings_, &log_);
  unsigned int error = 0;
  ASSERT_EQ(adapter.handoffMessage(error, message.get(), "127.0.0.1", sink.port()), 0);
  EXPECT_THAT(sink.messages(), ElementsAre("Subject: x\r\n\r\nbody\r\n"));
  EXPECT_FALSE(message->changed());
}

TEST_F(AdapterSending, HandOffUsesTheSettingsForItsHost) {
  SmtpSink sink(R"({"offers": []})");
  host::core::IniSettings ini;
  std::string fault;
  ASSERT_TRUE(ini.loadText(
      "[delivery 127.0.0.1:" + std::to_string(sink.port()) + "]\ntls = starttls\n", "test", fault));
  ASSERT_TRUE(settings_.read(ini, fault)) << fault;
  EXPECT_EQ(handOff("127.0.0.1", sink.port()), AdapterError::TlsFailed);
  EXPECT_THAT(log_.takeLines(1), ElementsAre(HasSubstr("TLS failed")));
}

}  // namespace
