// Texts put into messages: what a caller relies on. What comes out byte by byte: tests/golden.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/message/text_as_attachment.h"
#include "library/platform/ov_msg_error.h"
#include "tests/unit/host/message/support/mail.h"

namespace message_test {
namespace {

using host::message::Change;
using host::message::Entity;
using host::message::Message;

int insert(Message& message, std::string_view text, OvMsgInsertPlace place = OvMsgInsertPlace::Top,
           const char* destination = nullptr) {
  return message.insertText(place, Resource(text), 20, "utf-8", destination);
}

TEST(InsertText, GoesBeforeOrBehindTheText) {
  auto message = mail("Subject: s\n\nHello\n");
  EXPECT_EQ(insert(*message, "Stamp"), OVMSGERR::Ok);
  EXPECT_EQ(message->toString(), "Subject: s\n\nStamp\nHello\n");
  EXPECT_EQ(insert(*message, "Two\r\nlines", OvMsgInsertPlace::End), OVMSGERR::Ok);
  EXPECT_EQ(message->toString(), "Subject: s\n\nStamp\nHello\nTwo\nlines\n");
  ASSERT_EQ(message->changes().size(), 2u);
  EXPECT_EQ(message->changes()[0].kind, Change::Kind::PartChanged);
  EXPECT_EQ(message->received().toString(), "Subject: s\n\nHello\n");
}

TEST(InsertText, GoesIntoEveryAlternative) {
  auto message = mail(
      "Content-Type: multipart/alternative; boundary=b\n\n"
      "--b\nContent-Type: text/plain\n\nHello\n"
      "--b\nContent-Type: text/html\n\n<html><body>Hello</body></html>\n--b--\n");
  EXPECT_EQ(insert(*message, "a < b\r\nc"), OVMSGERR::Ok);
  EXPECT_EQ(at(*message, "1.1")->body(), "a < b\nc\nHello");
  EXPECT_EQ(at(*message, "1.2")->body(),
            "<html><body>\n<div>a &lt; b<br>c</div>\nHello</body></html>");
}

TEST(InsertText, RefusesWhatItCannotInsert) {
  const std::string bytes = "Subject: s\n\nHello\n";
  auto message = mail(bytes);
  EXPECT_EQ(message->insertText(OvMsgInsertPlace::Top, nullptr, 20, "utf-8", nullptr),
            OVMSGERR::InvalidArgument);
  EXPECT_EQ(message->insertText(OvMsgInsertPlace::Top, Resource("x"), 20, nullptr, nullptr),
            OVMSGERR::InvalidArgument);
  EXPECT_EQ(
      message->insertText(static_cast<OvMsgInsertPlace>(3), Resource("x"), 20, "utf-8", nullptr),
      OVMSGERR::InvalidArgument);
  EXPECT_EQ(message->insertText(OvMsgInsertPlace::Top, Resource("x"), 20, "no-charset", nullptr),
            OVMSGERR::UnknownCharset);
  EXPECT_EQ(insert(*message, ""), OVMSGERR::Ok);
  EXPECT_EQ(message->toString(), bytes);
  EXPECT_FALSE(message->changed());
  EXPECT_EQ(insert(*mail("no header\n"), "x"), OVMSGERR::NoBody);
  EXPECT_EQ(insert(*mail(""), "x"), OVMSGERR::NoBody);
}

TEST(InsertText, PutsAQuestionMarkForEveryByteThatIsNoText) {
  auto message = mail("Subject: s\n\nHello\n");
  EXPECT_EQ(insert(*message, std::string_view("caf\xE9 \0!", 7)), OVMSGERR::Ok);
  const std::string bytes = message->toString();
  EXPECT_NE(bytes.find("caf? ?!\n"), std::string::npos) << bytes;
}

TEST(InsertText, KeepsEveryAddressWhenItWrapsASoleAttachment) {
  const std::string bytes =
      "Subject: s\nMIME-Version: 1.0\nContent-Type: application/pdf; name=a.pdf\n"
      "Content-Transfer-Encoding: base64\n\nQUJD\n";
  auto message = mail(bytes);
  Entity* const attachment = message->firstEntity();
  OvMsgHeader* const subject = attachment->header("Subject");
  EXPECT_EQ(insert(*message, "Stamp"), OVMSGERR::Ok);
  EXPECT_TRUE(message->contains(attachment));
  EXPECT_TRUE(attachment->isSubordinate());
  EXPECT_EQ(attachment->decodedContent(), "ABC");
  EXPECT_EQ(message->firstEntity()->contentType(), "multipart/mixed");
  EXPECT_EQ(message->firstEntity()->header("Subject"), subject);
  EXPECT_EQ(message->firstEntity()->firstChild()->body(), "Stamp");
  EXPECT_EQ(message->firstEntity()->firstChild()->nextSibling(), attachment);
}

TEST(InsertText, KeepsAContentTypeThatTheMimeLibraryCannotWrite) {
  const std::string before =
      "Content-Type: text/plain; " + std::string(400, '\xF3') + "=x; charset=";
  auto message = mail(before + "us-ascii;\n y=\"z\"\n\nHello\n");
  EXPECT_EQ(insert(*message, "caf\xC3\xA9"), OVMSGERR::Ok);
  EXPECT_TRUE(message->toString().starts_with(before + "utf-8;\n y=\"z\"\nContent-Transfer"));
}

TEST(InsertText, RefusesFragments) {
  auto message =
      mail("Content-Type: message/partial; id=a; number=1; total=2\n\nSubject: s\n\nx\n");
  EXPECT_EQ(insert(*message, "x"), OVMSGERR::NotSupported);
  EXPECT_FALSE(message->changed());
}

TEST(InsertText, CopesWithManyPartsAndDeepNesting) {
  std::string many = "Content-Type: multipart/alternative; boundary=b\n\n";
  for (int i = 0; i < 20000; ++i) many += "--b\nContent-Type: text/plain\n\nx\n";
  auto message = mail(many + "--b--\n");
  EXPECT_EQ(insert(*message, "Stamp"), OVMSGERR::Ok);
  EXPECT_EQ(message->changes().size(), 20000u);
  std::string deep;
  for (int i = 0; i < 5000; ++i) {
    deep += "Content-Type: multipart/mixed; boundary=b" + std::to_string(i) + "\n\n--b" +
            std::to_string(i) + "\n";
  }
  message = mail(deep + "\nHello\n");
  EXPECT_EQ(insert(*message, "Stamp", OvMsgInsertPlace::End), OVMSGERR::Ok);
  EXPECT_NE(message->toString().find("Hello"), std::string::npos);
  EXPECT_NE(message->toString().find("Stamp"), std::string::npos);
}

/// The process-wide default, put back at the end.
class AsAttachment {
 public:
  AsAttachment() { OvMsg_SetDisclaimerAttachmentAsDefault(1); }
  ~AsAttachment() { OvMsg_SetDisclaimerAttachmentAsDefault(0); }
  AsAttachment(const AsAttachment&) = delete;
  AsAttachment& operator=(const AsAttachment&) = delete;
};

TEST(InsertTextAsAttachment, AddsAPlainTextPartAtTheEnd) {
  const AsAttachment on;
  auto message = mail(
      "Content-Type: multipart/mixed; boundary=b\n\n--b\n\nHello\n"
      "--b\nContent-Type: image/png\n\nPNG\n--b--\n");
  EXPECT_EQ(insert(*message, "Stamp"), OVMSGERR::Ok);
  EXPECT_EQ(at(*message, "1.1")->body(), "Hello");
  const Entity* const added = at(*message, "1.3");
  ASSERT_NE(added, nullptr);
  EXPECT_EQ(added->contentType(), "text/plain");
  EXPECT_EQ(added->disposition(), "attachment");
  EXPECT_EQ(added->fileNameText(), "stamp.txt");
  EXPECT_EQ(added->body(), "Stamp");
}

TEST(InsertTextAsAttachment, LeavesBodiesOfComposedMailsAlone) {
  const AsAttachment on;
  const auto message = Message::create();
  EXPECT_EQ(message->firstEntity()->insertTextBody(Resource("Body"), "text/plain", nullptr, "7bit"),
            OVMSGERR::Ok);
  EXPECT_EQ(message->firstEntity()->contentType(), "text/plain");
  EXPECT_EQ(message->firstEntity()->disposition(), "");
  EXPECT_EQ(message->firstEntity()->body(), "Body");
}

}  // namespace
}  // namespace message_test
