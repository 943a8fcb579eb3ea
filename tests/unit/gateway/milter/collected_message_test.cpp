#include "gateway/milter/collected_message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace gateway::milter {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

class CollectedMessageTest : public testing::Test {
 protected:
  CollectedMessageTest() {
    std::string name = fs::temp_directory_path() / "collected.XXXXXX";
    folder_ = ::mkdtemp(name.data());
  }
  ~CollectedMessageTest() override { fs::remove_all(folder_); }

  CollectedMessage message(const MessageLimits& limits = {}, std::size_t memory = 1 << 16) {
    return CollectedMessage(limits, folder_, memory);
  }
  static std::string bytesOf(CollectedMessage& message) {
    const auto bytes = message.takeBytes();
    return bytes == nullptr ? "nothing: " + message.fault() : std::string(bytes->view());
  }

  fs::path folder_;
};

TEST_F(CollectedMessageTest, PutsTheMessageTogetherAsItWasSent) {
  CollectedMessage mail = message();
  mail.addHeader("Subject", " a");
  mail.addHeader("X-Folded", "one\n\ttwo\r\n three");
  mail.addHeader("X-Empty", "");
  mail.endHeader();
  mail.addBody("first\r\n");
  mail.addBody("second\r\n");
  EXPECT_EQ(bytesOf(mail),
            "Subject: a\r\nX-Folded:one\r\n\ttwo\r\n three\r\nX-Empty:\r\n\r\nfirst\r\nsecond\r\n");
}

TEST_F(CollectedMessageTest, AMessageWithoutBodyEndsBehindItsBlankLine) {
  CollectedMessage mail = message();
  mail.addHeader("A", " b");
  EXPECT_EQ(bytesOf(mail), "A: b\r\n\r\n");
  CollectedMessage none = message();
  EXPECT_EQ(bytesOf(none), "\r\n");
}

TEST_F(CollectedMessageTest, KeepsTheEnvelopeWithItsArguments) {
  CollectedMessage mail = message();
  mail.setSender("<>", {"SIZE=5"});
  mail.addRecipient("<a@example.org>", {"NOTIFY=NEVER", "ORCPT=rfc822;a@example.org"});
  mail.addRecipient("b@example.org", {});
  EXPECT_EQ(mail.envelope().sender, "");
  EXPECT_THAT(mail.envelope().recipients, ElementsAre("a@example.org", "b@example.org"));
  EXPECT_THAT(mail.sender().arguments, ElementsAre("SIZE=5"));
  EXPECT_THAT(mail.recipients().at(0).arguments,
              ElementsAre("NOTIFY=NEVER", "ORCPT=rfc822;a@example.org"));
}

TEST_F(CollectedMessageTest, ALargeMessageGoesToAFileThatHasNoName) {
  CollectedMessage mail = message({}, 100);
  mail.addHeader("A", " b");
  std::string expected = "A: b\r\n\r\n";
  for (int i = 0; i < 1000; ++i) {
    const std::string line = std::to_string(i) + " some text\r\n";
    mail.addBody(line);
    expected += line;
  }
  EXPECT_TRUE(fs::is_empty(folder_));
  EXPECT_EQ(bytesOf(mail), expected);
}

TEST_F(CollectedMessageTest, ADiskThatTakesNothingIsAFault) {
  CollectedMessage mail({}, folder_ / "missing", 10);
  mail.addHeader("A", " b");
  mail.addBody(std::string(100, 'x'));
  EXPECT_THAT(mail.fault(), HasSubstr("missing"));
  EXPECT_EQ(mail.takeBytes(), nullptr);
}

TEST_F(CollectedMessageTest, NoFieldCanBeginInsideAnother) {
  for (const char* value : {" a\nX-Evil: b", " a\r\nX-Evil: b", " a\n", "\n\n"}) {
    CollectedMessage mail = message();
    mail.addHeader("A", value);
    EXPECT_THAT(mail.fault(), HasSubstr("no fold")) << value;
    EXPECT_EQ(mail.takeBytes(), nullptr);
  }
  for (const char* name : {"", "A:B", "A B", "A\nB"}) {
    CollectedMessage mail = message();
    mail.addHeader(name, " x");
    EXPECT_THAT(mail.fault(), HasSubstr("proper name")) << name;
  }
}

TEST_F(CollectedMessageTest, SaysWhichLimitIsExceededAndKeepsNothingBeyond) {
  MessageLimits limits;
  limits.recipients = 1;
  limits.headerFields = 1;
  limits.headerBytes = 20;
  limits.bytes = 30;
  const auto excessOf = [&](auto fill) {
    CollectedMessage mail = message(limits);
    fill(mail);
    return mail.excess();
  };
  EXPECT_EQ(excessOf([](CollectedMessage& mail) {
              mail.addRecipient("a@b", {});
              mail.addHeader("A", " 12345678901234");  // with its line break 19 bytes
              mail.addBody("123456789");
            }),
            "");
  EXPECT_EQ(excessOf([](CollectedMessage& mail) {
              mail.addRecipient("a@b", {});
              mail.addRecipient("c@d", {});
            }),
            "more than 1 recipients");
  EXPECT_EQ(excessOf([](CollectedMessage& mail) {
              mail.addHeader("A", "");
              mail.addHeader("B", "");
            }),
            "more than 1 header fields");
  EXPECT_EQ(excessOf([](CollectedMessage& mail) { mail.addHeader("A", std::string(17, 'x')); }),
            "more than 20 bytes of header");
  EXPECT_EQ(excessOf([](CollectedMessage& mail) {
              for (int i = 0; i < 100; ++i) mail.addBody("1234567890");
              EXPECT_LE(mail.size(), 30U);
              EXPECT_EQ(mail.takeBytes(), nullptr);
            }),
            "more than 30 bytes");
}

}  // namespace
}  // namespace gateway::milter
