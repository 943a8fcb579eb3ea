#include "gateway/cli/message_diff.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "gateway/cli/message_changes.h"
#include "host/message/header_field.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_functions.h"
#include "tests/unit/gateway/messages.h"
#include "tests/unit/host/core/cpu_time.h"

namespace gateway::cli {
namespace {

using host::message::Entity;
using host::message::Message;

Entity* partAt(Message& message, const std::string& path) {
  Entity* entity = message.firstEntity();
  while (entity != nullptr && entity->path() != path) entity = entity->nextEntity();
  return entity;
}

/// "1.2 removed Tool.EXE application/octet-stream 3>0; …"
std::string changesOf(Message& message) {
  std::string text;
  for (const PartChange& part : changedParts(message.received(), message)) {
    text += part.path + " " + wordOf(part.kind);
    if (!part.name.empty()) text += " " + part.name;
    text += " " + part.type;
    for (const FieldChange& field : part.fields) {
      text += " " + field.name + "/" + wordOf(field.kind);
    }
    if (part.content) text += " content";
    text += " " + std::to_string(part.bytesBefore) + ">" + std::to_string(part.bytesAfter) + ";";
  }
  return text;
}

std::string diffOf(Message& message) {
  std::string text;
  for (const DiffSection& section : messageDiff(message.received(), message)) {
    text += "@ " + section.title + "\n";
    for (const DiffLine& line : section.lines) text += line.mark + line.text + "\n";
  }
  return text;
}

TEST(MessageChanges, OfAnUntouchedMessageAreNone) {
  const auto message = withAttachments();
  EXPECT_EQ(changesOf(*message), "");
  EXPECT_EQ(diffOf(*message), "");
  EXPECT_EQ(changesOf(*parsed("")), "");
}

TEST(MessageChanges, TakeTimeLinearInTheDepth) {
  const auto seconds = [](int depth) {
    std::string text = "Subject: s\n";
    for (int i = 0; i < depth; ++i) text += "Content-Type: message/rfc822\n\n";
    const auto message = parsed(text + "\nbody\n");
    EXPECT_TRUE(msgu::setHeader(message->firstEntity(), "X-A", "b", nullptr));
    const double spent = testing_host::leastCpuSeconds(
        [&] { EXPECT_EQ(changesOf(*message).substr(0, 9), "1 changed"); });
    return spent;
  };
  // Eight times the depth; quadratic would be 64 times the time. The floor is for noise.
  EXPECT_LT(seconds(16'000), 30 * seconds(2'000) + 0.05);
}

TEST(MessageChanges, NameFieldsByWhatBecameOfThem) {
  const auto message = withHeader("Subject: x\nX-A: 1\nX-A: 2\nX-B: 1\n");
  Entity* root = message->firstEntity();
  ASSERT_TRUE(msgu::setHeader(root, "Subject", "y", nullptr));
  ASSERT_TRUE(root->removeHeaderAt(1));
  ASSERT_TRUE(root->removeHeader("X-B"));
  ASSERT_TRUE(root->addHeader(-1, "X-C", "1", nullptr));
  ASSERT_TRUE(root->addHeader(-1, "Subject", "z", nullptr));
  EXPECT_EQ(changesOf(*message),
            "1 changed text/plain Subject/changed Subject/added X-A/removed X-B/removed X-C/added "
            "0>0;");
  EXPECT_EQ(
      diffOf(*message),
      "@ header\n-Subject: x\n-X-A: 1\n+Subject: y\n X-A: 2\n-X-B: 1\n+X-C: 1\n+Subject: z\n");
}

TEST(MessageChanges, NameARemovedPartOnce) {
  const auto message = withAttachments();
  ASSERT_TRUE(msgu::removeEntityAndDummyParent(partAt(*message, "1.4"), ""));
  ASSERT_TRUE(msgu::removeEntityAndDummyParent(partAt(*message, "1.2"), ""));
  EXPECT_EQ(changesOf(*message),
            "1.2 removed Tool.EXE application/octet-stream 2>0;1.4 removed message/rfc822 0>0;");
  EXPECT_EQ(diffOf(*message),
            "@ attachments\n-1.2  Tool.EXE  application/octet-stream  2 bytes\n"
            " 1.3  image/png  3 bytes\n-1.4  message/rfc822\n"
            "-1.4.1.1  \xC3\xA4.js  text/plain  1 byte\n");
}

TEST(MessageChanges, ShowNewContentDecoded) {
  const auto message = parsed(
      "MIME-Version: 1.0\nContent-Type: text/plain; charset=iso-8859-1\nContent-Transfer-Encoding: "
      "quoted-printable\n\nfirst\nB=FCro\nlast\n");
  const std::string content = "first\nBüro, groß\nlast\n";
  const std::unique_ptr<OvMsgResourceLocator, void (*)(OvMsgResourceLocator*)> resource(
      OvMsg_CreateResourceLocator(content.data(), kOvMsgMemoryResource,
                                  static_cast<unsigned int>(content.size()),
                                  static_cast<unsigned int>(content.size()), 1),
      OvMsg_DeleteResourceLocator);
  ASSERT_EQ(message->firstEntity()->setContent(resource.get(), "text/plain", "utf-8", "base64"), 0);
  EXPECT_EQ(changesOf(*message),
            "1 changed text/plain Content-Type/changed Content-Transfer-Encoding/changed content "
            "16>27;");
  EXPECT_EQ(diffOf(*message),
            "@ header\n MIME-Version: 1.0\n-Content-Type: text/plain; charset=iso-8859-1\n"
            "-Content-Transfer-Encoding: quoted-printable\n"
            "+Content-Type: text/plain; charset=utf-8\n+Content-Transfer-Encoding: base64\n"
            "@ part 1, text/plain\n first\n-Büro\n+Büro, groß\n last\n");
}

TEST(MessageChanges, ListWhatWasAdded) {
  const auto message = withHeader("Subject: x\n");
  const auto other = parsed(
      "Content-Type: application/pdf\nContent-Disposition: attachment; filename=a.pdf\n\n%PDF\n");
  ASSERT_EQ(message->firstEntity()->insertChild(other->firstEntity(), -1), 0);
  const std::string changes = changesOf(*message);
  EXPECT_THAT(changes, testing::HasSubstr("added a.pdf application/pdf 0>5;"));
  EXPECT_THAT(diffOf(*message), testing::HasSubstr("a.pdf  application/pdf  5 bytes\n"));
}

TEST(MessageChanges, SayThatSignedContentStandsInsideAsItWas) {
  const std::string kSigned =
      "Subject: s\nContent-Type: multipart/signed; boundary=b; "
      "protocol=\"application/pkcs7-signature\"\n\npreamble\n--b\nContent-Type: text/plain\n\n"
      "text\n--b\nContent-Type: application/pkcs7-signature; name=s.p7s\n\nxyz\n--b--\n";
  const auto message = parsed(kSigned);
  const std::unique_ptr<OvMsgResourceLocator, void (*)(OvMsgResourceLocator*)> stamp(
      OvMsg_CreateResourceLocator("STAMP\n", kOvMsgMemoryResource, 6, 6, 1),
      OvMsg_DeleteResourceLocator);
  ASSERT_EQ(message->insertText(OvMsgInsertPlace::End, stamp.get(), 20, "utf-8", nullptr), 0);
  EXPECT_EQ(changesOf(*message),
            "1 changed multipart/mixed Content-Type/changed MIME-Version/added 0>0;1.1 wrapped "
            "multipart/signed 0>0;"
            "1.2 added text/plain 0>5;");
  std::vector<std::string> titles;
  for (const DiffSection& section : messageDiff(message->received(), *message)) {
    titles.push_back(section.title);
  }
  const std::string number = "1.2";
  EXPECT_EQ(titles, (std::vector<std::string>{"header", "part " + number + ", text/plain"}));
  // One byte of it, and it is not what was received.
  ASSERT_TRUE(msgu::setHeader(partAt(*message, "1.1.1"), "X-A", "b", nullptr));
  EXPECT_EQ(changesOf(*message).find("wrapped"), std::string::npos);
}

TEST(MessageDiff, LooksAtTheFirstMegabyteOfAText) {
  std::string body;
  while (body.size() < 3u << 20) body += "a line of text\n";
  const auto message = parsed("Subject: x\n\n" + body);
  body += "more\n";
  const std::unique_ptr<OvMsgResourceLocator, void (*)(OvMsgResourceLocator*)> resource(
      OvMsg_CreateResourceLocator(body.data(), kOvMsgMemoryResource,
                                  static_cast<unsigned int>(body.size()),
                                  static_cast<unsigned int>(body.size()), 1),
      OvMsg_DeleteResourceLocator);
  ASSERT_EQ(message->firstEntity()->setContent(resource.get(), "text/plain", "us-ascii", "7bit"),
            0);
  EXPECT_THAT(changesOf(*message), testing::HasSubstr("content"));
  EXPECT_THAT(diffOf(*message), testing::Not(testing::HasSubstr("@ part")));
}

}  // namespace
}  // namespace gateway::cli
