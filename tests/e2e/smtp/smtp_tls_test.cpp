// STARTTLS, TLS from the start, and AUTH.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/e2e/smtp/smtp_test.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::SmtpClient;
using host::delivery::SmtpDestination;
using host::delivery::SmtpOutcome;
using host::delivery::SmtpStage;
using host::delivery::SmtpTls;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using testing_host::envelopeTo;
using testing_host::sendBytes;
using testing_host::SmtpSink;
using testing_host::TempFolder;

constexpr char kMail[] = "Subject: hello\r\n\r\nbody\r\n";

// A certificate for 127.0.0.1, made for this run.
class Certificate {
 public:
  Certificate() {
    const std::string command =
        "openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 "
        "-addext subjectAltName=IP:127.0.0.1 -keyout " +
        key() + " -out " + certificate() + " 2>/dev/null";
    if (std::system(command.c_str()) != 0) throw std::runtime_error("openssl req failed");
  }
  std::string certificate() const { return folder_ / "cert.pem"; }
  std::string key() const { return folder_ / "key.pem"; }
  std::string json(bool implicit = false) const {
    return R"("tls": {"cert": ")" + certificate() + R"(", "key": ")" + key() +
           R"(", "implicit": )" + (implicit ? "true" : "false") + "}";
  }

 private:
  TempFolder folder_;
};

class SmtpTlsTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { certificate_ = new Certificate; }
  static void TearDownTestSuite() {
    delete certificate_;
    certificate_ = nullptr;
  }

  static std::string script(const std::string& rest = R"("offers": ["STARTTLS"])",
                            bool implicit = false) {
    return "{" + certificate_->json(implicit) + ", " + rest + "}";
  }

  static SmtpDestination secured(const SmtpSink& sink, SmtpTls tls) {
    SmtpDestination to = sink.destination();
    to.tls = tls;
    to.caFile = certificate_->certificate();
    return to;
  }

  static SmtpOutcome send(const SmtpDestination& to) {
    SmtpClient client("gateway.example.org");
    return sendBytes(client, to, envelopeTo({"a@example.com"}), kMail);
  }

  static std::size_t encrypted(const SmtpSink& sink) {
    std::size_t count = 0;
    for (const auto& event : sink.events()) count += event.kind == "tls" && event.text == "up";
    return count;
  }

  static Certificate* certificate_;
};

Certificate* SmtpTlsTest::certificate_ = nullptr;

TEST_F(SmtpTlsTest, StartTlsSecuresTheSession) {
  for (const SmtpTls tls : {SmtpTls::Required, SmtpTls::Opportunistic}) {
    SmtpSink sink(script());
    const SmtpOutcome outcome = send(secured(sink, tls));
    EXPECT_TRUE(outcome.isSent()) << outcome.text();
    EXPECT_THAT(
        sink.commands(),
        ElementsAre("EHLO gateway.example.org", "STARTTLS", "EHLO gateway.example.org",
                    "MAIL FROM:<sender@example.org>", "RCPT TO:<a@example.com>", "DATA", "QUIT"));
    EXPECT_EQ(encrypted(sink), 1u);
  }
}

TEST_F(SmtpTlsTest, ImplicitTlsSecuresTheSession) {
  SmtpSink sink(script(R"("offers": [])", true));
  const SmtpOutcome outcome = send(secured(sink, SmtpTls::Implicit));
  EXPECT_TRUE(outcome.isSent()) << outcome.text();
  EXPECT_EQ(encrypted(sink), 1u);
}

TEST_F(SmtpTlsTest, LargeMessagePassesWhole) {
  SmtpSink sink(script());
  std::string mail = "Subject: x\r\n\r\n";
  for (int line = 0; line < 100'000; ++line) mail += ".a line\r\n";
  SmtpClient client("gateway.example.org");
  const SmtpOutcome outcome =
      sendBytes(client, secured(sink, SmtpTls::Required), envelopeTo({"a@example.com"}), mail, 1000,
                {5000, 30000, 60000});
  ASSERT_TRUE(outcome.isSent()) << outcome.text();
  EXPECT_TRUE(sink.messages().at(0) == mail);
}

TEST_F(SmtpTlsTest, NothingIsSentWithoutTlsThatIsRequired) {
  SmtpSink sink(script(R"("offers": [])"));
  const SmtpOutcome outcome = send(secured(sink, SmtpTls::Required));
  EXPECT_EQ(outcome.error, AdapterError::TlsFailed);
  EXPECT_FALSE(outcome.isFinal());
  EXPECT_THAT(sink.commands(), Not(Contains(HasSubstr("MAIL"))));
}

TEST_F(SmtpTlsTest, OpportunisticTlsGoesOnWithout) {
  SmtpSink sink(script(R"("offers": [])"));
  EXPECT_TRUE(send(secured(sink, SmtpTls::Opportunistic)).isSent());
  EXPECT_EQ(encrypted(sink), 0u);
}

TEST_F(SmtpTlsTest, RefusedStartTlsIsAFailureOfTls) {
  SmtpSink sink(script(R"("offers": ["STARTTLS"], "at": {"starttls": {"reply": "454 4.7.0 no"}})"));
  const SmtpOutcome outcome = send(secured(sink, SmtpTls::Required));
  EXPECT_EQ(outcome.error, AdapterError::TlsFailed);
  EXPECT_EQ(outcome.stage, SmtpStage::Tls);
  EXPECT_THAT(outcome.text(), HasSubstr("454 4.7.0 no"));
}

TEST_F(SmtpTlsTest, CertificateMustHold) {
  SmtpSink sink(script());
  SmtpDestination to = secured(sink, SmtpTls::Required);
  to.caFile.clear();  // the system does not know it
  const SmtpOutcome outcome = send(to);
  EXPECT_EQ(outcome.error, AdapterError::TlsFailed) << outcome.text();
  EXPECT_THAT(sink.messages(), IsEmpty());
  to.verifyPeer = false;
  EXPECT_TRUE(send(to).isSent());
}

TEST_F(SmtpTlsTest, CertificateMustBeForTheHost) {
  SmtpSink sink(script());
  SmtpDestination to = secured(sink, SmtpTls::Required);
  to.host = "localhost";
  EXPECT_EQ(send(to).error, AdapterError::TlsFailed);
}

TEST_F(SmtpTlsTest, MissingTrustFileIsAFailureOfTls) {
  SmtpSink sink(script());
  SmtpDestination to = secured(sink, SmtpTls::Required);
  to.caFile = "/nonexistent/ca.pem";
  EXPECT_EQ(send(to).error, AdapterError::TlsFailed);
}

TEST_F(SmtpTlsTest, StallAtStartTlsTimesOut) {
  SmtpSink sink(script(R"("offers": ["STARTTLS"], "at": {"starttls": {"do": "stall"}})"));
  EXPECT_EQ(send(secured(sink, SmtpTls::Required)).error, AdapterError::TimedOut);
}

constexpr char kLoginScript[] =
    R"({"offers": ["AUTH PLAIN"], "auth": {"user": "kavi", "password": "s3cret"}})";

TEST(SmtpLogin, LogsIn) {
  SmtpSink sink(kLoginScript);
  SmtpDestination to = sink.destination();
  to.user = "kavi";
  to.password = "s3cret";
  SmtpClient client("gateway.example.org");
  const SmtpOutcome outcome = sendBytes(client, to, envelopeTo({"a@example.com"}), kMail);
  EXPECT_TRUE(outcome.isSent()) << outcome.text();
}

TEST(SmtpLogin, WrongPasswordIsAFailureOfTheLogin) {
  SmtpSink sink(kLoginScript);
  SmtpDestination to = sink.destination();
  to.user = "kavi";
  to.password = "wrong";
  SmtpClient client("gateway.example.org");
  const SmtpOutcome outcome = sendBytes(client, to, envelopeTo({"a@example.com"}), kMail);
  EXPECT_EQ(outcome.error, AdapterError::LoginFailed) << outcome.text();
  EXPECT_EQ(outcome.stage, SmtpStage::Login);
  EXPECT_EQ(outcome.reply, "535 5.7.8 bad login");
  EXPECT_FALSE(outcome.isFinal());
  EXPECT_THAT(outcome.text(), Not(HasSubstr("wrong")));
}

TEST(SmtpLogin, OtherCredentialsGetAnotherConnection) {
  SmtpSink sink(kLoginScript);
  SmtpClient client("gateway.example.org");
  SmtpDestination to = sink.destination();
  EXPECT_TRUE(sendBytes(client, to, envelopeTo({"a@example.com"}), kMail).isSent());
  to.user = "kavi";
  to.password = "s3cret";
  EXPECT_TRUE(sendBytes(client, to, envelopeTo({"a@example.com"}), kMail).isSent());
  EXPECT_EQ(sink.connections(), 2u);
}

}  // namespace
