// The SMTP client against a server that does as it should, and against none.
#include "host/delivery/smtp_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "tests/e2e/smtp/smtp_test.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::Envelope;
using host::delivery::SmtpClient;
using host::delivery::SmtpDestination;
using host::delivery::SmtpOutcome;
using host::delivery::SmtpStage;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using testing_host::envelopeTo;
using testing_host::sendBytes;
using testing_host::SmtpSink;

constexpr char kMail[] = "Subject: hello\r\n\r\nbody\r\n";
constexpr char kEightBitMail[] = "Subject: hello\r\n\r\nna\xC3\xAFve\r\n";

TEST(SmtpClient, SendsToEveryRecipient) {
  SmtpSink sink(R"({"offers": ["SIZE 1000000"]})");
  SmtpClient client("gateway.example.org");
  const SmtpOutcome outcome =
      sendBytes(client, sink.destination(), envelopeTo({"a@example.com", "b@example.com"}), kMail);
  EXPECT_TRUE(outcome.isSent()) << outcome.text();
  EXPECT_EQ(outcome.replyCode, 250);
  EXPECT_THAT(sink.commands(),
              ElementsAre("EHLO gateway.example.org", "MAIL FROM:<sender@example.org> SIZE=24",
                          "RCPT TO:<a@example.com>", "RCPT TO:<b@example.com>", "DATA"));
  EXPECT_THAT(sink.messages(), ElementsAre(kMail));
}

TEST(SmtpClient, SendsFromTheNullSender) {
  for (const bool everSet : {true, false}) {
    SmtpSink sink;
    SmtpClient client("gateway.example.org");
    Envelope envelope{std::nullopt, {"a@example.com"}};
    if (everSet) envelope.sender = "";
    EXPECT_TRUE(sendBytes(client, sink.destination(), envelope, kMail).isSent());
    EXPECT_THAT(sink.commands(), Contains("MAIL FROM:<>"));
  }
}

TEST(SmtpClient, KeepsTheConnectionForTheNextMessage) {
  SmtpSink sink;
  SmtpClient client("gateway.example.org");
  for (int round = 0; round < 5; ++round) {
    EXPECT_TRUE(
        sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), kMail).isSent());
  }
  EXPECT_EQ(sink.connections(), 1u);
  EXPECT_EQ(sink.messages().size(), 5u);
}

TEST(SmtpClient, EachThreadHasItsOwnConnection) {
  SmtpSink sink;
  const auto sendTwo = [&] {
    for (int round = 0; round < 2; ++round) {
      SmtpClient& client = SmtpClient::ofThisThread("gateway.example.org");
      EXPECT_TRUE(
          sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), kMail).isSent());
    }
  };
  std::thread first(sendTwo);
  std::thread second(sendTwo);
  first.join();
  second.join();
  EXPECT_EQ(sink.connections(), 2u);
  EXPECT_EQ(sink.messages().size(), 4u);
}

TEST(SmtpClient, ReplacesAConnectionThatWentStale) {
  // The second MAIL finds a server that has gone, or says that it goes.
  for (const char* action :
       {R"({"do": "hangup", "after": 1, "times": 1})", R"({"do": "reset", "after": 1, "times": 1})",
        R"({"reply": "421 4.4.2 idle", "after": 1, "times": 1})"}) {
    SmtpSink sink(std::string(R"({"at": {"mail": )") + action + "}}");
    SmtpClient client("gateway.example.org");
    for (int round = 0; round < 2; ++round) {
      const SmtpOutcome outcome =
          sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), kMail);
      EXPECT_TRUE(outcome.isSent()) << action << " " << outcome.text();
    }
    EXPECT_EQ(sink.connections(), 2u) << action;
    EXPECT_EQ(sink.messages().size(), 2u) << action;
  }
}

TEST(SmtpClient, DoesNotTryANewConnectionTwice) {
  SmtpSink sink(R"({"at": {"mail": {"do": "hangup"}}})");
  SmtpClient client("gateway.example.org");
  EXPECT_EQ(sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), kMail).error,
            AdapterError::ConnectionLost);
  EXPECT_EQ(sink.connections(), 1u);
}

TEST(SmtpClient, AnnouncesEightBitContent) {
  SmtpSink sink(R"({"offers": ["8BITMIME", "DSN", "SIZE 1000000"]})");
  SmtpClient client("gateway.example.org");
  const auto to = sink.destination();
  EXPECT_TRUE(sendBytes(client, to, envelopeTo({"a@example.com"}), kEightBitMail).isSent());
  EXPECT_TRUE(sendBytes(client, to, envelopeTo({"a@example.com"}), kMail).isSent());
  EXPECT_TRUE(sendBytes(client, to, {"", {"a@example.com"}}, kEightBitMail).isSent());
  const auto commands = sink.commands();
  EXPECT_THAT(
      commands,
      ElementsAre("EHLO gateway.example.org", "NOOP",
                  "MAIL FROM:<sender@example.org> BODY=8BITMIME ENVID=<0123456789abcdef> SIZE=26",
                  "RCPT TO:<a@example.com>", "DATA", "MAIL FROM:<sender@example.org> SIZE=24",
                  "RCPT TO:<a@example.com>", "DATA",
                  "MAIL FROM:<> BODY=8BITMIME ENVID=<0123456789abcdef> SIZE=26",
                  "RCPT TO:<a@example.com>", "DATA"));
  EXPECT_EQ(sink.connections(), 1u);
}

TEST(SmtpClient, AnnouncesNothingThatTheServerDoesNotOffer) {
  for (const char* offers :
       {R"([])", R"(["8BITMIME"])", R"(["DSN"])", R"(["X-8BITMIME", "DSN"])"}) {
    SmtpSink sink(std::string(R"({"offers": )") + offers + "}");
    SmtpClient client("gateway.example.org");
    const auto outcome =
        sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), kEightBitMail);
    EXPECT_TRUE(outcome.isSent()) << offers;
    EXPECT_THAT(sink.commands(), Contains("MAIL FROM:<sender@example.org>")) << offers;
    EXPECT_THAT(sink.messages(), ElementsAre(kEightBitMail)) << offers;
  }
}

TEST(SmtpClient, FallsBackToHelo) {
  SmtpSink sink(R"({"at": {"ehlo": {"reply": "502 5.5.1 what", "times": 1}}})");
  SmtpClient client("gateway.example.org");
  EXPECT_TRUE(sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), kMail).isSent());
  EXPECT_THAT(sink.commands(), Contains("HELO gateway.example.org"));
}

TEST(SmtpClient, NamesItselfLocalhostWhenItsNameIsNone) {
  SmtpSink sink;
  SmtpClient client("two words\r\nQUIT");
  EXPECT_TRUE(sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), kMail).isSent());
  EXPECT_THAT(sink.commands(), Contains("EHLO localhost"));
}

// A port of this machine where nobody listens.
int closedPort() {
  const int holder = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  EXPECT_EQ(::bind(holder, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(::getsockname(holder, reinterpret_cast<sockaddr*>(&address), &size), 0);
  ::close(holder);
  return ntohs(address.sin_port);
}

TEST(SmtpClient, TellsARefusedConnection) {
  SmtpDestination to;
  to.host = "127.0.0.1";
  to.port = closedPort();
  SmtpClient client("gateway.example.org");
  const SmtpOutcome outcome = sendBytes(client, to, envelopeTo({"a@example.com"}), kMail);
  EXPECT_EQ(outcome.error, AdapterError::ConnectionRefused);
  EXPECT_EQ(outcome.stage, SmtpStage::Connect);
  EXPECT_EQ(outcome.text(), to.text() + ": connection refused while connecting");
}

TEST(SmtpClient, TellsAHostWithoutAddress) {
  SmtpDestination to;
  to.host = "no-such-host.invalid";
  SmtpClient client("gateway.example.org");
  const SmtpOutcome outcome =
      sendBytes(client, to, envelopeTo({"a@example.com"}), kMail, 100, {20'000, 1000, 20'000});
  EXPECT_EQ(outcome.error, AdapterError::Unresolved) << outcome.text();
  EXPECT_THAT(outcome.text(), HasSubstr("no-such-host.invalid:25: host name not found"));
}

TEST(SmtpClient, SendsOverIpv6) {
  SmtpDestination to;
  to.host = "::1";
  to.port = closedPort();
  SmtpClient client("gateway.example.org");
  const AdapterError error = sendBytes(client, to, envelopeTo({"a@example.com"}), kMail).error;
  // No listener there, and on some machines no such protocol: but never a faulty name.
  EXPECT_TRUE(error == AdapterError::ConnectionRefused || error == AdapterError::Unreachable);
}

TEST(SmtpClient, IgnoresProxiesOfTheEnvironment) {
  ::setenv("ALL_PROXY", "http://127.0.0.1:1", 1);
  SmtpSink sink;
  SmtpClient client("gateway.example.org");
  EXPECT_TRUE(sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), kMail).isSent());
  ::unsetenv("ALL_PROXY");
}

struct Injection {
  const char* name;
  std::string text;
  AdapterError error;
};

void PrintTo(const Injection& tested, std::ostream* out) { *out << tested.name; }

std::vector<Injection> injections() {
  return {
      {"LineBreak", "a@example.com\r\nRCPT TO:<evil@example.net>", AdapterError::BadAddress},
      {"Lf", "a@example.com\nDATA", AdapterError::BadAddress},
      {"Cr", "a@example.com\rDATA", AdapterError::BadAddress},
      {"Nul", std::string("a@example.com\0b", 15), AdapterError::BadAddress},
      {"Tab", "a@example.com\tSIZE=1", AdapterError::BadAddress},
      {"Delete", "a\x7F@example.com", AdapterError::BadAddress},
      {"Escape", "a\x1B[2J@example.com", AdapterError::BadAddress},
      {"Parameter", "a@example.com> BODY=8BITMIME", AdapterError::BadAddress},
      {"Brackets", "<a@example.com>", AdapterError::BadAddress},
      {"BracketInside", "a>b@example.com", AdapterError::BadAddress},
      {"Space", "a b@example.com", AdapterError::BadAddress},
      {"OpenQuote", "\"a@example.com", AdapterError::BadAddress},
      {"QuoteInside", "a\"b c\"@example.com", AdapterError::BadAddress},
      {"QuoteThenText", "\"a\"b> X=<@example.com", AdapterError::BadAddress},
      {"LoneBackslash", "\"a\\", AdapterError::BadAddress},
      {"Backslash", "a\\b@example.com", AdapterError::BadAddress},
      {"TooLong", std::string(600, 'a') + "@example.com", AdapterError::BadAddress},
      {"Utf8", "j\xC3\xBCrgen@example.com", AdapterError::Utf8Address},
      {"Latin1", "j\xFCrgen@example.com", AdapterError::Utf8Address},
      {"Utf8Host", "a@ex\xC3\xA4mple.com", AdapterError::Utf8Address},
  };
}

class SmtpInjection : public ::testing::TestWithParam<Injection> {};

TEST_P(SmtpInjection, IsRefusedBeforeAnythingIsSent) {
  SmtpSink sink;
  SmtpClient client("gateway.example.org");
  const Injection& bad = GetParam();
  const Envelope asSender{bad.text, {"a@example.com"}};
  const Envelope asRecipient{"a@example.com", {"b@example.com", bad.text}};
  for (const Envelope& envelope : {asSender, asRecipient}) {
    const SmtpOutcome outcome = sendBytes(client, sink.destination(), envelope, kMail);
    EXPECT_EQ(outcome.error, bad.error);
    EXPECT_EQ(outcome.address, bad.text);
    EXPECT_TRUE(outcome.isFinal());
    EXPECT_THAT(outcome.text(), Not(HasSubstr("\n")));
  }
  EXPECT_EQ(sink.connections(), 0u);
}

TEST_P(SmtpInjection, IsRefusedAsAHostName) {
  SmtpClient client("gateway.example.org");
  SmtpDestination to;
  to.host = GetParam().text;
  EXPECT_EQ(sendBytes(client, to, envelopeTo({"a@example.com"}), kMail).error,
            AdapterError::BadAddress);
}

INSTANTIATE_TEST_SUITE_P(All, SmtpInjection, ::testing::ValuesIn(injections()),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(SmtpClient, SendsQuotedAndUnusualAddressesAsTheyAre) {
  const std::vector<std::string> addresses{
      "\"a b\"@example.com",
      "\"a\\\"b\"@example.com",
      "\"<a@b>\"@example.com",
      "a+b=c%d!e@example.com",
      "postmaster",
      "a@[127.0.0.1]",
      "$&'*-/?^_`.{|}~@x.test",
      "a@b@example.com",
  };
  SmtpSink sink;
  SmtpClient client("gateway.example.org");
  EXPECT_TRUE(sendBytes(client, sink.destination(), envelopeTo(addresses), kMail).isSent());
  for (const std::string& address : addresses) {
    EXPECT_THAT(sink.commands(), Contains("RCPT TO:<" + address + ">"));
  }
}

TEST(SmtpClient, RefusesWhatNobodyCanReceive) {
  SmtpSink sink;
  SmtpClient client("gateway.example.org");
  SmtpDestination none;
  const auto to = sink.destination();
  EXPECT_EQ(sendBytes(client, none, envelopeTo({"a@b.test"}), kMail).error,
            AdapterError::NoDestination);
  EXPECT_EQ(sendBytes(client, to, envelopeTo({}), kMail).error, AdapterError::NoRecipients);
  EXPECT_EQ(sendBytes(client, to, envelopeTo({"a@b.test", ""}), kMail).error,
            AdapterError::BadAddress);
  for (const int port : {-1, 0, 65536}) {
    SmtpDestination wrong = to;
    wrong.port = port;
    EXPECT_EQ(sendBytes(client, wrong, envelopeTo({"a@b.test"}), kMail).error,
              AdapterError::InvalidArgument);
  }
  EXPECT_EQ(sink.connections(), 0u);
}

class BrokenSource final : public host::delivery::MailSource {
 public:
  explicit BrokenSource(int goodRuns, std::size_t bytes) : goodRuns_(goodRuns), bytes_(bytes) {}
  bool writeTo(OvMsgSink& sink) const override {
    const std::string line = "0123456789\r\n";
    for (std::size_t at = 0; at < bytes_; at += line.size()) {
      if (!sink.write(line.data(), line.size())) return false;
    }
    return goodRuns_-- > 0;
  }

 private:
  mutable int goodRuns_;
  std::size_t bytes_;
};

TEST(SmtpClient, DeliversNothingOfAMessageThatCannotBeWritten) {
  // Unreadable at once, and in the middle of the second reading of a large one.
  for (const int goodRuns : {0, 1}) {
    SmtpSink sink;
    SmtpClient client("gateway.example.org");
    const BrokenSource source(goodRuns, 200'000);
    const Envelope envelope = envelopeTo({"a@example.com"});
    const SmtpOutcome outcome =
        client.send(sink.destination(), testing_host::shortTimeouts(), {envelope, source, ""});
    EXPECT_EQ(outcome.error, AdapterError::MessageUnreadable) << outcome.text();
    EXPECT_FALSE(outcome.isFinal());
    EXPECT_THAT(sink.messages(), IsEmpty());
  }
}

}  // namespace
