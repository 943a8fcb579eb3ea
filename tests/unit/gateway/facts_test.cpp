#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "gateway/scan/message_facts.h"
#include "tests/unit/gateway/messages.h"

namespace gateway::scan {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(MessageFacts, DecodesTheSubject) {
  const auto message = withHeader(
      "Subject: =?iso-2022-jp?B?GyRCOCtAUT1xGyhC?=\n"
      " =?utf-8?Q?_=C3=A4?=\n");
  EXPECT_THAT(MessageFacts(*message).subjects(), ElementsAre("見積書 ä"));
}

TEST(MessageFacts, TakesEverySubject) {
  const auto message = withHeader("subject: one\nSUBJECT: two\n");
  const MessageFacts facts(*message);
  EXPECT_THAT(facts.subjects(), ElementsAre("one", "two"));
  EXPECT_THAT(facts.headers("subject"), ElementsAre("one", "two"));
}

TEST(MessageFacts, UnfoldsHeaderValues) {
  const auto message = withHeader("X-A: one\n\ttwo\nx-a:three\n");
  const MessageFacts facts(*message);
  EXPECT_THAT(facts.headers("x-a"), ElementsAre("one\ttwo", "three"));
  EXPECT_THAT(facts.headers("x-b"), IsEmpty());
}

TEST(MessageFacts, KnowsNothingOfAnEmptyMessage) {
  const auto message = parsed("");
  const MessageFacts facts(*message);
  EXPECT_EQ(facts.size(), 0u);
  EXPECT_THAT(facts.subjects(), ElementsAre(""));
  EXPECT_EQ(facts.sender(), "");
  EXPECT_THAT(facts.recipients(), IsEmpty());
  EXPECT_THAT(facts.attachments(), IsEmpty());
  EXPECT_THAT(facts.headers("from"), IsEmpty());
}

TEST(MessageFacts, ReadsTheEnvelope) {
  const auto message = withHeader("From: other@example.com\n");
  message->setEnvelope({.sender = "a@example.com",
                        .recipients = {"b@example.com", "c@example.com"},
                        .senderDisplayName = {}});
  const MessageFacts facts(*message);
  EXPECT_EQ(facts.sender(), "a@example.com");
  EXPECT_THAT(facts.recipients(), ElementsAre("b@example.com", "c@example.com"));
  EXPECT_EQ(facts.size(), message->receivedBytes().size());
}

TEST(MessageFacts, FindsAttachmentsInNestedMessagesToo) {
  const auto message = withAttachments();
  const MessageFacts facts(*message);
  std::vector<std::string> found;
  for (const Attachment& attachment : facts.attachments()) {
    ASSERT_NE(attachment.entity, nullptr);
    found.push_back(attachment.type() + " " + attachment.fileName());
  }
  EXPECT_THAT(found, ElementsAre("application/octet-stream Tool.EXE", "image/png ",
                                 "message/rfc822 ", "text/plain ä.js"));
}

TEST(MessageFacts, AMailThatIsOneFileIsAnAttachment) {
  const auto message = withHeader("Content-Type: application/pdf\n");
  EXPECT_EQ(MessageFacts(*message).attachments().size(), 1u);
  const auto text = withHeader("Content-Type: text/html\n");
  EXPECT_THAT(MessageFacts(*text).attachments(), IsEmpty());
}

TEST(MessageFacts, TextIsAnAttachmentWhenAnyFieldSaysSo) {
  for (const char* header : {"Content-Disposition: inline\nContent-Disposition: attachment\n",
                             "Content-Type: text/plain\nContent-Type: application/x-msdownload\n",
                             "Content-Type: text/plain\nContent-Type: text/plain; name=a.js\n"}) {
    const auto message = withHeader(header);
    const MessageFacts facts(*message);
    EXPECT_EQ(facts.attachments().size(), 1u) << header;
  }
}

}  // namespace
}  // namespace gateway::scan
