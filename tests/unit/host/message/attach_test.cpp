// Parts and whole messages that are put into another.
#include <gtest/gtest.h>

#include <string>

#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_header.h"
#include "tests/unit/host/message/support/mail.h"

namespace message_test {
namespace {

using host::message::Entity;
using host::message::Message;

TEST(InsertChild, CopiesAPartOfAnotherMessage) {
  auto source = mail(kParts);
  auto message = mail(
      "Subject: s\r\nContent-Type: multipart/mixed; boundary=x\r\n\r\n--x\r\n\r\n"
      "text\r\n--x--\r\n");
  EXPECT_EQ(message->firstEntity()->insertChild(at(*source, "1.2"), -1), 0);
  EXPECT_EQ(message->firstEntity()->insertChild(at(*source, "1.3"), 0), 0);
  source.reset();
  EXPECT_EQ(message->toString(),
            "Subject: s\r\nContent-Type: multipart/mixed; boundary=x\r\n\r\n"
            "--x\r\nContent-Type: message/rfc822\n\nSubject: inner\n\ninner text\r\n"
            "--x\r\n\r\ntext\r\n"
            "--x\r\nContent-Type: image/png; name=p.png\nContent-Disposition: attachment\n\nPNG\r\n"
            "--x--\r\n");
  for (Entity* entity = message->firstEntity(); entity != nullptr; entity = entity->nextEntity()) {
    EXPECT_TRUE(msgu::existEntity(message.get(), entity));
  }
  EXPECT_EQ(message->entityCount(), 5u);
}

TEST(InsertChild, OfTheMessageIntoItselfCopies) {
  auto message = mail(kParts);
  EXPECT_EQ(message->firstEntity()->insertChild(message->firstEntity(), 1), 0);
  auto again = mail(message->toString());
  EXPECT_EQ(again->entityCount(), 10u);
  EXPECT_EQ(message->entityCount(), 10u);
}

TEST(InsertChild, GivesAMultipartANewBoundaryWhenTheCopyHoldsItsOwn) {
  auto message = mail(kParts);
  auto source = mail("Content-Type: text/plain\n\none\n--b\n\nforged\n--b--\n");
  EXPECT_EQ(message->firstEntity()->insertChild(source->firstEntity(), 0), 0);
  EXPECT_NE(message->firstEntity()->contentTypeParameter("boundary"), "b");
  auto again = mail(message->toString());
  EXPECT_EQ(again->entityCount(), 6u);
  EXPECT_EQ(at(*again, "1.1")->body(), "one\n--b\n\nforged\n--b--\n");
  EXPECT_NE(message->toString().find("--\nepilogue\n"), std::string::npos);
}

TEST(InsertChild, ClosesAMultipartThatIsNot) {
  auto source = mail(kParts);
  auto message = mail("Content-Type: multipart/mixed; boundary=x\n\n--x\n\ntext");
  EXPECT_EQ(message->firstEntity()->insertChild(at(*source, "1.2"), -1), 0);
  EXPECT_EQ(message->toString(),
            "Content-Type: multipart/mixed; boundary=x\n\n--x\n\ntext\n--x\n"
            "Content-Type: image/png; name=p.png\nContent-Disposition: attachment\n\nPNG\n"
            "--x--\n");
}

TEST(InsertChild, RefusesNullAndRemovedPlaces) {
  auto message = mail(kParts);
  auto source = mail(kParts);
  EXPECT_EQ(message->firstEntity()->insertChild(nullptr, 0), OVMSGERR::InvalidArgument);
  Entity* image = at(*message, "1.2");
  ASSERT_TRUE(msgu::removeEntityAndDummyParent(image, ""));
  EXPECT_EQ(image->insertChild(source->firstEntity(), 0), OVMSGERR::ForeignEntity);
  EXPECT_EQ(image->setContent(Resource("x"), "text/plain", nullptr, "7bit"),
            OVMSGERR::ForeignEntity);
  EXPECT_EQ(image->insertTextBody(Resource("x"), "text/plain", nullptr, "7bit"),
            OVMSGERR::ForeignEntity);
  EXPECT_EQ(message->firstEntity()->insertChild(image, -1), 0) << "a removed part can come back";
  EXPECT_EQ(mail(message->toString())->entityCount(), 5u);
}

TEST(AttachMessage, PutsItInByteForByte) {
  for (const std::string& inner :
       {std::string("Subject: in\r\n\r\nbody"), std::string("no header at all\n"), std::string(),
        std::string(kParts), std::string("\nbody \xFF\n"), std::string("A: 1\n\nx\0y", 9)}) {
    auto source = mail(inner);
    auto message = Message::create();
    ASSERT_TRUE(msgu::setHeader(message->firstEntity(), "Subject", "s", nullptr));
    ASSERT_EQ(
        message->firstEntity()->insertTextBody(Resource("hi"), "text/plain", nullptr, "base64"), 0);
    ASSERT_EQ(message->firstEntity()->attachMessage(source.get(), -1), 0);
    source.reset();
    auto again = mail(message->toString());
    Entity* part = at(*again, "1.2");
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(part->contentType(), "message/rfc822");
    const std::string whole = message->toString();
    EXPECT_NE(whole.find("\r\n\r\n" + inner + "\r\n--"), std::string::npos);
  }
}

TEST(AttachMessage, DeclaresWhatItsBytesNeed) {
  const std::pair<std::string, const char*> cases[] = {
      {"A: 1\n\nplain\n", "7bit"},
      {"A: 1\n\n\xC3\xA9\n", "8bit"},
      {"A: 1\n\n" + std::string(1200, 'x'), "binary"},
      {"A: 1\r\n\r\ntwo\r\r\n", "7bit"},
      {"A: 1\r\rmac\r", "binary"},
  };
  for (const auto& [inner, encoding] : cases) {
    auto message = mail(kParts);
    ASSERT_EQ(message->firstEntity()->attachMessage(mail(inner).get(), -1), 0);
    EXPECT_EQ(at(*message, "1.4")->transferEncoding(), encoding);
  }
}

TEST(AttachMessage, DeclaresItsEncodingForAllAroundIt) {
  const std::pair<std::string, const char*> cases[] = {
      {"A: 1\n\nplain\n", "7bit"},
      {"A: 1\n\n\xC3\xA9\n", "8bit"},
      {"A: 1\n\n" + std::string(1200, 'x'), "binary"},
  };
  for (const auto& [inner, encoding] : cases) {
    auto composed = Message::create();
    ASSERT_EQ(
        composed->firstEntity()->insertTextBody(Resource("hi"), "text/plain", nullptr, "base64"),
        0);
    ASSERT_EQ(composed->firstEntity()->attachMessage(mail(inner).get(), -1), 0);
    auto again = mail(composed->toString());
    EXPECT_EQ(again->firstEntity()->transferEncoding(), encoding);
    EXPECT_EQ(at(*again, "1.1")->transferEncoding(), "base64");
    auto received = mail(kParts);
    ASSERT_EQ(received->firstEntity()->attachMessage(mail(inner).get(), -1), 0);
    EXPECT_EQ(mail(received->toString())->firstEntity()->transferEncoding(), encoding);
  }
}

TEST(AttachMessage, LeavesAnEncodingThatLetsMoreThrough) {
  auto message = mail(
      "Content-Type: multipart/mixed; boundary=b\nContent-Transfer-Encoding: binary\n\n--b\n\n"
      "x\n--b--\n");
  ASSERT_EQ(message->firstEntity()->attachMessage(mail("A: 1\n\n\xC3\xA9\n").get(), -1), 0);
  EXPECT_EQ(message->firstEntity()->transferEncoding(), "binary");
}

TEST(AttachMessage, TakesTheMessageAsItStandsOrAsReceived) {
  auto scanned = mail("Subject: in\n\nbody\n");
  ASSERT_TRUE(msgu::setHeader(scanned->firstEntity(), "X-A", "1", nullptr));
  auto message = mail(kParts);
  ASSERT_EQ(message->firstEntity()->attachMessage(scanned.get(), -1), 0);
  ASSERT_EQ(message->firstEntity()->attachMessage(&scanned->received(), -1), 0);
  const std::string whole = message->toString();
  EXPECT_NE(whole.find("Subject: in\nX-A: 1\n\nbody\n\n--b"), std::string::npos) << whole;
  EXPECT_NE(whole.find("\n\nSubject: in\n\nbody\n\n--b--"), std::string::npos) << whole;
}

TEST(Edits, ComposeANotification) {
  auto owned = std::unique_ptr<OvMsgMailMessage, void (*)(OvMsgMailMessage*)>(
      OvMsg_CreateMailMessage(), OvMsg_DeleteMailMessage);
  OvMsgMailMessage* message = owned.get();
  OvMsgEntity* root = msgu::getRootEntity(message);
  ASSERT_NE(root, nullptr);
  ASSERT_TRUE(root->addHeader(-1, "Content-Type", "", nullptr));
  ASSERT_TRUE(root->addHeader(-1, "Subject", "", nullptr));
  EXPECT_EQ(root->header("Subject")->setValue("caf\xC3\xA9", "utf-8"), 0);
  EXPECT_EQ(root->header("Content-Type")->setValue("text/html", nullptr), 0);
  EXPECT_EQ(root->header("Content-Type")->setParameter("charset", "utf-8"), 0);
  EXPECT_STREQ(root->header("Content-Type")->rawValue(),
               "Content-Type: text/html; charset=utf-8\r\n");
  EXPECT_TRUE(msgu::setHeader(root, "Content-Transfer-Encoding", "base64", nullptr));
  EXPECT_TRUE(msgu::setHeader(root, "Date", "", nullptr));
  EXPECT_TRUE(msgu::setHeader(root, "MIME-Version", "1.0", nullptr));
  EXPECT_EQ(root->insertTextBody(Resource("body"), "text/plain", "utf-8", "base64"), 0);
  const std::string header =
      "Auto-Submitted: auto-generated\r\n"
      "Content-Type: text/plain; charset=utf-8\r\nSubject: =?utf-8?B?Y2Fmw6k=?=\r\n"
      "Content-Transfer-Encoding: base64\r\nDate:\r\nMIME-Version: 1.0\r\n";
  std::string text;
  EXPECT_TRUE(msgu::getHeaders(message, text));
  EXPECT_EQ(text, header);
  EXPECT_EQ(static_cast<Message*>(message)->toString(), header + "\r\nYm9keQ==\r\n");
  auto scanned = mail("Subject: in\n\nbody\n");
  EXPECT_EQ(root->attachMessage(scanned.get(), -1), 0);
  EXPECT_NE(msgu::getRootEntity(message), root);
  auto again = mail(static_cast<Message*>(message)->toString());
  EXPECT_EQ(again->entityCount(), 4u);
  EXPECT_EQ(at(*again, "1.1")->decodedContent(), "body");
  EXPECT_EQ(at(*again, "1.2.1")->body(), "body\n");
}

}  // namespace
}  // namespace message_test
