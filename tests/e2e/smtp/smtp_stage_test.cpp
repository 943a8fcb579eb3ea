// A server that misbehaves at any stage of a transaction.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "tests/e2e/smtp/smtp_test.h"
#include "tests/e2e/smtp/stage_cases.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::SmtpClient;
using host::delivery::SmtpOutcome;
using host::delivery::SmtpStage;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing_host::envelopeTo;
using testing_host::sendBytes;
using testing_host::SmtpSink;
using testing_host::StageCase;

using Clock = std::chrono::steady_clock;

// So large that it is under way for a while, beyond what the system's buffers take.
std::string largeMail() {
  std::string mail = "Subject: large\r\n\r\n";
  for (int line = 0; line < 500'000; ++line) mail += "a line of the body, and another one\r\n";
  return mail;
}

class SmtpStages : public ::testing::TestWithParam<StageCase> {};

TEST_P(SmtpStages, AreToldApart) {
  const StageCase& expected = GetParam();
  SmtpSink sink("{\"at\": {\"" + expected.stage + "\": " + expected.action + "}}");
  SmtpClient client("gateway.example.org");
  const std::string mail =
      expected.stage == "body" ? largeMail() : std::string("Subject: x\r\n\r\nbody\r\n");
  const auto begin = Clock::now();
  const SmtpOutcome outcome =
      sendBytes(client, sink.destination(), envelopeTo({"a@example.com", "b@example.com"}), mail);
  const auto taken = Clock::now() - begin;
  EXPECT_EQ(outcome.error, expected.error) << outcome.text();
  EXPECT_EQ(outcome.stage, expected.at) << outcome.text();
  EXPECT_EQ(outcome.isFinal(), expected.isFinal) << outcome.text();
  EXPECT_EQ(outcome.isUncertain(), expected.isUncertain) << outcome.text();
  EXPECT_LT(taken, std::chrono::seconds(5));
  EXPECT_THAT(sink.messages(), IsEmpty());
  EXPECT_THAT(outcome.text(), HasSubstr(sink.destination().text()));
}

INSTANTIATE_TEST_SUITE_P(All, SmtpStages, ::testing::ValuesIn(testing_host::stageCases()),
                         [](const auto& tested) { return tested.param.name; });

std::vector<StageCase> casesWithReply() {
  std::vector<StageCase> cases = testing_host::stageCases();
  std::erase_if(cases, [](const auto& tested) { return !tested.action.starts_with("{\"reply"); });
  return cases;
}

class SmtpReplies : public ::testing::TestWithParam<StageCase> {};

TEST_P(SmtpReplies, AreNamedWithTheRecipient) {
  const StageCase& expected = GetParam();
  SmtpSink sink("{\"at\": {\"" + expected.stage + "\": " + expected.action + "}}");
  SmtpClient client("gateway.example.org");
  const SmtpOutcome outcome =
      sendBytes(client, sink.destination(), envelopeTo({"a@example.com", "b@example.com"}),
                "Subject: x\r\n\r\nbody\r\n");
  const std::string text = expected.action.substr(11, expected.action.size() - 13);
  EXPECT_EQ(outcome.reply, text);
  EXPECT_EQ(outcome.replyCode, std::stoi(text));
  EXPECT_THAT(outcome.text(), HasSubstr(text));
  const char* recipient = expected.stage == "rcpt1"   ? "a@example.com"
                          : expected.stage == "rcpt2" ? "b@example.com"
                                                      : "";
  EXPECT_EQ(outcome.address, recipient);
}

INSTANTIATE_TEST_SUITE_P(All, SmtpReplies, ::testing::ValuesIn(casesWithReply()),
                         [](const auto& tested) { return tested.param.name; });

TEST(SmtpStage, ReplyThatComesInTheMiddleOfTheMessageEndsIt) {
  SmtpSink sink(R"({"at": {"body": {"reply": "552 5.3.4 too big"}, "end": {"do": "hangup"}}})");
  SmtpClient client("gateway.example.org");
  const SmtpOutcome outcome =
      sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), largeMail());
  EXPECT_FALSE(outcome.isSent());
  EXPECT_THAT(sink.messages(), IsEmpty());
}

TEST(SmtpStage, ReplyOfSeveralLinesIsNamedWhole) {
  SmtpSink sink(R"({"at": {"mail": {"reply": "550-5.7.1 first\n550-5.7.1 second\n550 third"}}})");
  SmtpClient client("gateway.example.org");
  const SmtpOutcome outcome =
      sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), "\r\n");
  EXPECT_EQ(outcome.reply, "550-5.7.1 first / 550-5.7.1 second / 550 third");
}

TEST(SmtpStage, ReplyIsMadePrintable) {
  SmtpSink sink(R"({"at": {"mail": {"reply": "550 \u001b[31m\u0007red \u00ff"}}})");
  SmtpClient client("gateway.example.org");
  const SmtpOutcome outcome =
      sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), "\r\n");
  EXPECT_EQ(outcome.reply, "550 \\x1B[31m\\x07red \\xFF");
}

TEST(SmtpStage, LongRepliesAreCut) {
  const std::string filler(800, 'x');
  SmtpSink sink(R"({"at": {"mail": {"reply": "550-)" + filler + R"(\n550 )" + filler + R"("}}})");
  SmtpClient client("gateway.example.org");
  const SmtpOutcome outcome =
      sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), "\r\n");
  EXPECT_EQ(outcome.reply.size(), 1000u);
  EXPECT_EQ(outcome.replyCode, 550);
}

TEST(SmtpStage, ServerThatDoesNotSayGoodbyeHoldsNobodyUp) {
  SmtpSink sink(R"({"at": {"quit": {"do": "stall"}, "mail": {"reply": "550 no"}}})");
  const auto begin = Clock::now();
  {
    SmtpClient client("gateway.example.org");
    const SmtpOutcome outcome =
        sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), "\r\n");
    EXPECT_EQ(outcome.error, AdapterError::RefusedForGood);
  }
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(4));
}

TEST(SmtpStage, IdleConnectionToAStalledServerClosesInTime) {
  SmtpSink sink(R"({"at": {"quit": {"do": "stall"}}})");
  const auto begin = Clock::now();
  {
    SmtpClient client("gateway.example.org");
    EXPECT_TRUE(
        sendBytes(client, sink.destination(), envelopeTo({"a@example.com"}), "\r\n").isSent());
  }
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(4));
}

TEST(SmtpStage, TotalTimeBindsAServerThatAnswersSlowly) {
  // Each reply is in time for itself; the transaction as a whole is not.
  SmtpSink sink(R"({"at": {"rcpt2": {"do": "stall"}}})");
  SmtpClient client("gateway.example.org");
  const auto begin = Clock::now();
  const SmtpOutcome outcome =
      sendBytes(client, sink.destination(), envelopeTo({"a@example.com", "b@example.com"}), "\r\n",
                10, {60'000, 60'000, 700});
  EXPECT_EQ(outcome.error, AdapterError::TimedOut);
  EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(1700));
}

}  // namespace
