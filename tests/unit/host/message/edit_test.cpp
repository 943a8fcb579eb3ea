// Edits of the tree: contents, parts, removal.
#include <gtest/gtest.h>

#include <string>

#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "tests/unit/host/message/support/mail.h"

namespace message_test {
namespace {

using host::message::Entity;

std::string without(std::string text, const std::string& part) {
  const std::size_t where = text.find(part);
  EXPECT_NE(where, std::string::npos) << part;
  return where == std::string::npos ? text : text.erase(where, part.size());
}

TEST(RemoveEntity, TakesThePartAndItsDelimiter) {
  auto message = mail(kParts);
  Entity* image = at(*message, "1.2");
  EXPECT_TRUE(msgu::removeEntityAndDummyParent(image, ""));
  EXPECT_EQ(message->toString(), without(kParts,
                                         "\n--b\nContent-Type: image/png; name=p.png\n"
                                         "Content-Disposition: attachment\n\nPNG"));
  EXPECT_FALSE(msgu::existEntity(message.get(), image));
  EXPECT_FALSE(msgu::removeEntityAndDummyParent(image, "")) << "it is gone already";
  EXPECT_EQ(image->parentEntity(), nullptr);
  EXPECT_EQ(image->nextEntity(), nullptr);
  ASSERT_EQ(message->changes().size(), 1u);
  EXPECT_EQ(message->changes()[0].kind, host::message::Change::Kind::PartRemoved);
  EXPECT_EQ(message->changes()[0].what, "p.png");
  EXPECT_EQ(message->changes()[0].entityPath, "1.2");
  EXPECT_EQ(at(*message, "1.3")->contentType(), "message/rfc822") << "numbers stay";
  EXPECT_EQ(message->received().toString(), kParts);
}

TEST(RemoveEntity, TakesEmptiedParentsAlong) {
  auto message = mail(kParts);
  Entity* nested = at(*message, "1.3");
  Entity* inner = at(*message, "1.3.1");
  EXPECT_TRUE(msgu::removeEntityAndDummyParent(inner, ""));
  EXPECT_FALSE(msgu::existEntity(message.get(), inner));
  EXPECT_FALSE(msgu::existEntity(message.get(), nested));
  EXPECT_EQ(message->entityCount(), 3u);
}

TEST(RemoveEntity, OfTheLastPartLeavesAnEmptyText) {
  auto message = mail(
      "Subject: s\nContent-Type: multipart/mixed; boundary=b\n\n--b\n"
      "Content-Type: image/png\n\nPNG\n--b--\n");
  EXPECT_TRUE(msgu::removeEntityAndDummyParent(at(*message, "1.1"), ""));
  EXPECT_EQ(message->toString(),
            "Subject: s\nContent-Type: text/plain; charset=us-ascii\nMIME-Version: 1.0\n"
            "Content-Transfer-Encoding: 7bit\n\n");
  EXPECT_EQ(message->entityCount(), 1u);
}

TEST(RemoveEntity, RefusesRootsAndNull) {
  auto message = mail(kParts);
  EXPECT_FALSE(msgu::removeEntityAndDummyParent(message->firstEntity(), ""));
  EXPECT_FALSE(msgu::removeEntityAndDummyParent(nullptr, ""));
  EXPECT_EQ(message->toString(), kParts);
}

TEST(RemoveEntity, OfAMillionPartsOneByOneIsLinear) {
  std::string bytes = "Content-Type: multipart/mixed; boundary=b\n\n";
  constexpr int kCount = 200000;
  for (int i = 0; i < kCount; ++i) bytes += "--b\n\nx\n";
  auto message = mail(bytes);
  while (message->entityCount() > 1 && message->firstEntity()->firstChild() != nullptr) {
    Entity* first = message->firstEntity()->nextEntity();
    for (int i = 0; i < kCount && first != nullptr; ++i) {
      Entity* next = first->nextEntity();
      ASSERT_TRUE(msgu::removeEntityAndDummyParent(first, ""));
      first = next;
    }
  }
  EXPECT_EQ(message->firstEntity()->contentType(), "text/plain");
}

TEST(RemoveRootEntity, LeavesAnEmptyText) {
  auto message = mail(
      "Subject: s\nContent-Type: image/png; name=p.png\n"
      "Content-Disposition: attachment\n\nPNG");
  EXPECT_TRUE(msgu::removeRootEntity(message->firstEntity(), "utf-8"));
  EXPECT_EQ(message->toString(),
            "Subject: s\nContent-Type: text/plain; charset=utf-8\nMIME-Version: 1.0\n"
            "Content-Transfer-Encoding: 7bit\n\n");
  message = mail(kParts);
  EXPECT_FALSE(msgu::removeRootEntity(at(*message, "1.1"), "utf-8"));
  EXPECT_FALSE(msgu::removeRootEntity(nullptr, "utf-8"));
}

TEST(ExistEntity, NeverFollowsThePointer) {
  auto message = mail(kParts);
  auto other = mail(kParts);
  EXPECT_FALSE(msgu::existEntity(message.get(), nullptr));
  EXPECT_FALSE(msgu::existEntity(message.get(), reinterpret_cast<OvMsgEntity*>(0x10)));
  EXPECT_FALSE(msgu::existEntity(
      message.get(), reinterpret_cast<OvMsgEntity*>(
                         reinterpret_cast<std::uintptr_t>(message->firstEntity()) + 8)));
  EXPECT_FALSE(msgu::existEntity(message.get(), other->firstEntity()));
  EXPECT_FALSE(msgu::existEntity(nullptr, other->firstEntity()));
  for (Entity* entity = message->firstEntity(); entity != nullptr; entity = entity->nextEntity()) {
    EXPECT_TRUE(msgu::existEntity(message.get(), entity));
  }
}

TEST(SetContent, ReplacesContentAndItsFieldsOnly) {
  auto message = mail(kParts);
  Entity* image = at(*message, "1.2");
  EXPECT_EQ(image->setContent(Resource(" "), "text/plain", "iso-8859-1", "7bit"), 0);
  std::string expected = kParts;
  const std::string old =
      "Content-Type: image/png; name=p.png\nContent-Disposition: attachment\n\nPNG";
  expected.replace(expected.find(old), old.size(),
                   "Content-Type: text/plain; charset=iso-8859-1\n"
                   "Content-Transfer-Encoding: 7bit\n\n ");
  EXPECT_EQ(message->toString(), expected);
  EXPECT_TRUE(msgu::existEntity(message.get(), image));
  EXPECT_EQ(image->fileName(), nullptr);
}

TEST(SetContent, OfAMultipartDetachesItsParts) {
  auto message = mail(kParts);
  Entity* text = at(*message, "1.1");
  EXPECT_EQ(message->firstEntity()->setContent(Resource("new\n"), "text/html", "utf-8", "base64"),
            0);
  EXPECT_EQ(message->toString(),
            "From: a@example.com\nMIME-Version: 1.0\n"
            "Content-Type: text/html; charset=utf-8\nContent-Transfer-Encoding: base64\n\n"
            "bmV3DQo=\n");
  EXPECT_FALSE(msgu::existEntity(message.get(), text));
  EXPECT_EQ(text->contentType(), "text/plain") << "it stays readable";
}

TEST(SetContent, WritesTextInTheLineBreaksOfThePart) {
  auto message = mail("A: 1\r\n\r\nold\r\n");
  EXPECT_EQ(
      message->firstEntity()->setContent(Resource("one\ntwo\r\n"), "text/plain", "utf-8", "7bit"),
      0);
  EXPECT_TRUE(message->toString().ends_with("\r\n\r\none\r\ntwo\r\n"));
  EXPECT_EQ(message->firstEntity()->setContent(Resource("\xE2\x82\xAC\n"), "text/plain", "utf-8",
                                               "quoted-printable"),
            0);
  EXPECT_TRUE(message->toString().ends_with("\r\n\r\n=E2=82=AC\r\n")) << message->toString();
}

TEST(SetContent, KeepsToItsEncodingOrFails) {
  const std::tuple<std::string, const char*, int> cases[] = {
      {"\xE2\x82\xAC", "7bit", OVMSGERR::UnencodableText},
      {"\xE2\x82\xAC", "8bit", OVMSGERR::Ok},
      {std::string("a\0b", 3), "8bit", OVMSGERR::UnencodableText},
      {std::string(999, 'x'), "7bit", OVMSGERR::UnencodableText},
      {std::string(999, 'x'), "quoted-printable", OVMSGERR::Ok},
      {"x", "x-unknown", OVMSGERR::InvalidArgument},
      {"x", "x-uuencode", OVMSGERR::InvalidArgument},
  };
  for (const auto& [content, encoding, code] : cases) {
    auto message = mail(kParts);
    EXPECT_EQ(at(*message, "1.2")->setContent(Resource(content), "text/plain", nullptr, encoding),
              code)
        << encoding;
    if (code != OVMSGERR::Ok) {
      EXPECT_EQ(message->toString(), kParts);
    }
  }
  auto message = mail(kParts);
  Entity* image = at(*message, "1.2");
  EXPECT_EQ(image->setContent(Resource("x"), "multipart/mixed", nullptr, "7bit"),
            OVMSGERR::InvalidArgument);
  EXPECT_EQ(image->setContent(Resource("x"), nullptr, nullptr, "7bit"), OVMSGERR::InvalidArgument);
  EXPECT_EQ(image->setContent(Resource("x"), "text/plain", "a b", "7bit"),
            OVMSGERR::InvalidArgument);
  EXPECT_EQ(image->setContent(nullptr, "text/plain", nullptr, "7bit"), OVMSGERR::InvalidArgument);
  EXPECT_EQ(message->toString(), kParts);
}

TEST(SetContent, NeverForgesADelimiter) {
  auto message = mail(kParts);
  const std::string content = "one\n--b\n\ntwo\n--b--\n";
  for (const char* encoding : {"7bit", "8bit", "quoted-printable"}) {
    ASSERT_EQ(at(*message, "1.2")->setContent(Resource(content), "text/plain", nullptr, encoding),
              0);
    auto again = mail(message->toString());
    EXPECT_EQ(again->entityCount(), message->entityCount()) << encoding;
    EXPECT_EQ(at(*again, "1.2")->decodedContent(), "one\r\n--b\r\n\r\ntwo\r\n--b--\r\n");
  }
}

TEST(InsertTextBody, BecomesTheBodyOfAMailWithout) {
  auto message = mail("Subject: s\r\n\r\n");
  EXPECT_EQ(message->firstEntity()->insertTextBody(Resource("caf\xC3\xA9"), "text/plain", nullptr,
                                                   "base64"),
            0);
  EXPECT_EQ(message->toString(),
            "Subject: s\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=utf-8\r\n"
            "Content-Transfer-Encoding: base64\r\n\r\nY2Fmw6k=\r\n");
}

TEST(InsertTextBody, BecomesTheFirstPartOfAMultipart) {
  auto message = mail(kParts);
  EXPECT_EQ(message->firstEntity()->insertTextBody(Resource("new"), "text/plain", nullptr, "7bit"),
            0);
  std::string expected = kParts;
  expected.insert(expected.find("\n--b\n"),
                  "\n--b\nContent-Type: text/plain; charset=us-ascii\n"
                  "Content-Transfer-Encoding: 7bit\n\nnew");
  EXPECT_EQ(message->toString(), expected);
}

TEST(InsertTextBody, WrapsALeafThatKeepsItsAddress) {
  auto message = mail(
      "From a@example.com Thu Jan  1 00:00:00 1970\r\nSubject: s\r\nMIME-Version: 1.0\r\n"
      "Content-Type: image/png; name=p.png\r\nX-A: 1\r\nContent-Transfer-Encoding: base64\r\n\r\n"
      "UE5H\r\n");
  Entity* leaf = message->firstEntity();
  EXPECT_EQ(leaf->insertTextBody(Resource("new\n"), "text/plain", "utf-8", "8bit"), 0);
  Entity* root = message->firstEntity();
  ASSERT_NE(root, leaf);
  EXPECT_EQ(leaf->parentEntity(), root);
  EXPECT_TRUE(leaf->isSubordinate());
  EXPECT_FALSE(root->isSubordinate());
  EXPECT_EQ(leaf->decodedContent(), "PNG");
  const std::string boundary = root->contentTypeParameter("boundary").value();
  EXPECT_EQ(message->toString(),
            "From a@example.com Thu Jan  1 00:00:00 1970\r\nSubject: s\r\nMIME-Version: 1.0\r\n"
            "Content-Type: multipart/mixed; boundary=\"" +
                boundary + "\"\r\nX-A: 1\r\nContent-Transfer-Encoding: 8bit\r\n\r\n--" + boundary +
                "\r\nContent-Type: text/plain; charset=utf-8\r\n"
                "Content-Transfer-Encoding: 8bit\r\n\r\nnew\r\n\r\n--" +
                boundary +
                "\r\nContent-Type: image/png; name=p.png\r\nContent-Transfer-Encoding: base64\r\n"
                "\r\nUE5H\r\n\r\n--" +
                boundary + "--\r\n");
  auto again = mail(message->toString());
  EXPECT_EQ(at(*again, "1.2")->decodedContent(), "PNG");
}

/// The fields and the decoded body of a mail that declared \p declared when \p bytes went in.
std::pair<std::string, std::string> insertedInto(const char* declared, const std::string& bytes,
                                                 const char* charset) {
  auto message = mail(std::string("Content-Type: text/html; charset=") + declared +
                      "\r\nContent-Transfer-Encoding: base64\r\nMIME-Version: 1.0\r\n\r\n");
  EXPECT_EQ(
      message->firstEntity()->insertTextBody(Resource(bytes), "text/plain", charset, "base64"), 0);
  return {message->firstEntity()->contentTypeParameter("charset").value_or("(none)"),
          message->firstEntity()->decodedContent()};
}

using Inserted = std::pair<std::string, std::string>;

TEST(InsertTextBody, TakesBytesInTheirCharset) {
  EXPECT_EQ(insertedInto("utf-8", "\x1B$BF|\x1B(B", "iso-2022-jp"),
            Inserted("iso-2022-jp", "\x1B$BF|\x1B(B"));
  EXPECT_EQ(insertedInto("us-ascii", "caf\xC3\xA9", "utf-8"), Inserted("utf-8", "caf\xC3\xA9"));
  EXPECT_EQ(insertedInto("us-ascii", "plain", "utf-8"), Inserted("utf-8", "plain"));
}

TEST(InsertTextBody, TakesBytesInTheCharsetThatIsDeclared) {
  EXPECT_EQ(insertedInto("iso-8859-1", "caf\xE9", nullptr), Inserted("iso-8859-1", "caf\xE9"));
  EXPECT_EQ(insertedInto("shift_jis", "\x93\xFA", nullptr), Inserted("shift_jis", "\x93\xFA"));
  EXPECT_EQ(insertedInto("ISO-2022-JP", "\x1B$BF|\x1B(B", nullptr),
            Inserted("ISO-2022-JP", "\x1B$BF|\x1B(B"));
}

TEST(InsertTextBody, DeclaresAsciiForWhatIsAscii) {
  for (const char* declared : {"us-ascii", "utf-8", "iso-8859-1", "shift_jis", "iso-2022-jp"}) {
    EXPECT_EQ(insertedInto(declared, "plain", nullptr), Inserted("us-ascii", "plain")) << declared;
  }
}

TEST(InsertTextBody, TakesUtf8WhereTheDeclaredCharsetDoesNotFit) {
  for (const char* declared : {"us-ascii", "no-such-charset", "iso-2022-jp"}) {
    EXPECT_EQ(insertedInto(declared, "caf\xC3\xA9", nullptr), Inserted("utf-8", "caf\xC3\xA9"));
  }
}

TEST(InsertTextBody, QuestionsWhatIsNoText) {
  EXPECT_EQ(insertedInto("utf-8", "a\xFFz", "utf-8"), Inserted("utf-8", "a?z"));
  EXPECT_EQ(insertedInto("us-ascii", "\xFF\xFE", nullptr), Inserted("us-ascii", "??"));
}

TEST(InsertTextBody, FailsWithoutACharsetOrAText) {
  auto message = mail(kParts);
  EXPECT_EQ(message->firstEntity()->insertTextBody(Resource("x"), "text/plain", "no-such-charset",
                                                   "8bit"),
            OVMSGERR::UnknownCharset);
  EXPECT_EQ(message->firstEntity()->insertTextBody(Resource("\xE2\x82\xAC"), "text/plain", nullptr,
                                                   "7bit"),
            OVMSGERR::UnencodableText);
  EXPECT_EQ(message->firstEntity()->insertTextBody(Resource("x"), "image/png", nullptr, "7bit"),
            OVMSGERR::InvalidArgument);
  EXPECT_EQ(message->toString(), kParts);
}

}  // namespace
}  // namespace message_test
