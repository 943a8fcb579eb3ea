// What the scanner makes of bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "library/platform/ov_msg_header.h"
#include "tests/unit/host/message/support/mail.h"
#include "tests/unit/host/message/support/torture.h"

namespace message_test {
namespace {

using host::message::DefectKind;
using host::message::Entity;
using host::message::Limits;
using host::message::Message;

/// One line for each entity: path, kind, content type and the body with visible line breaks.
std::string outline(const Message& message) {
  std::string text;
  for (const Entity* entity = message.firstEntity(); entity != nullptr; entity = entity->next()) {
    const char* const kinds[] = {"?", "leaf", "multipart", "message", "opaque"};
    text += entity->path() + " " + kinds[static_cast<int>(entity->kind())] + " " +
            entity->contentType() + " [";
    for (const char c : entity->body()) {
      text += c == '\n' ? "\\n" : c == '\r' ? "\\r" : std::string(1, c);
    }
    text += "]\n";
  }
  return text;
}

bool hasDefect(const Message& message, DefectKind kind) {
  const auto defects = message.defects();
  return std::any_of(defects.begin(), defects.end(),
                     [&](const auto& defect) { return defect.kind == kind; });
}

std::string bytesOf(const std::string& name) {
  for (const Torture& torture : smallTortures()) {
    if (torture.name == name) return torture.bytes;
  }
  ADD_FAILURE() << "no case " << name;
  return {};
}

struct Outline {
  const char* name;
  const char* expected;
};

TEST(Structure, OfHardCases) {
  const Outline cases[] = {
      {"empty", ""},
      {"no header", ""},
      {"no header, blank line", ""},
      {"mbox line alone", ""},
      {"blank line first", "1 leaf text/plain [body\\n]\n"},
      {"mbox line and blank line", "1 leaf text/plain [body\\n]\n"},
      {"header only", "1 leaf text/plain []\n"},
      {"header only without newline", "1 leaf text/plain []\n"},
      {"garbage inside", "1 leaf text/plain [body\\n]\n"},
      {"no blank line", "1 leaf text/plain [the body begins\\nand goes on\\n]\n"},
      {"white space line", "1 leaf text/plain [body\\n]\n"},
      {"only bare CRs", "1 leaf text/plain []\n"},
      {"doubled CRs", "1 leaf text/plain [body\\r\\r\\n]\n"},
      {"plain parts",
       "1 multipart multipart/mixed []\n1.1 leaf text/plain [one]\n1.2 leaf text/plain [two]\n"},
      {"preamble and epilogue", "1 multipart multipart/mixed [pre]\n1.1 leaf text/plain [one]\n"},
      {"unclosed",
       "1 multipart multipart/mixed []\n1.1 leaf text/plain [one]\n1.2 leaf text/plain [two\\n]\n"},
      {"ends in a boundary",
       "1 multipart multipart/mixed []\n1.1 leaf text/plain [one]\n1.2 leaf text/plain []\n"},
      {"ends in a closing boundary, CRLF",
       "1 multipart multipart/mixed []\n1.1 leaf text/plain [one]\n"},
      {"blanks behind boundaries", "1 multipart multipart/mixed []\n1.1 leaf text/plain [one]\n"},
      {"prefix of a boundary",
       "1 multipart multipart/mixed []\n1.1 leaf text/plain [--b\\none\\n--bbb]\n"},
      {"empty parts",
       "1 multipart multipart/mixed []\n1.1 leaf text/plain []\n1.2 leaf text/plain []\n"
       "1.3 leaf text/plain []\n"},
      {"header without blank line", "1 multipart multipart/mixed []\n1.1 leaf text/html []\n"},
      {"body without header",
       "1 multipart multipart/mixed []\n1.1 leaf text/plain [plain words]\n"},
      {"no part", "1 leaf multipart/mixed [only text\\n]\n"},
      {"closed at once", "1 leaf multipart/mixed [--b--\\nepilogue\\n]\n"},
      {"no boundary", "1 leaf multipart/mixed [--b\\n\\none\\n--b--\\n]\n"},
      {"empty boundary", "1 multipart multipart/mixed []\n1.1 leaf text/plain [one]\n"},
      {"boundary that ends in dashes",
       "1 multipart multipart/mixed []\n1.1 leaf text/plain [one]\n"},
      {"parts behind the end", "1 multipart multipart/mixed []\n1.1 leaf text/plain [one]\n"},
      {"same boundary inside",
       "1 multipart multipart/mixed []\n1.1 multipart multipart/mixed []\n"
       "1.1.1 leaf text/plain [inner]\n1.2 leaf text/plain [outer]\n"},
      {"inner unclosed",
       "1 multipart multipart/mixed []\n1.1 multipart multipart/mixed []\n"
       "1.1.1 leaf text/plain [inner]\n1.2 leaf text/plain [outer]\n"},
      {"nested message",
       "1 multipart multipart/mixed []\n1.1 message message/rfc822 []\n"
       "1.1.1 leaf text/plain [inner]\n"},
      {"nested multipart message",
       "1 multipart multipart/mixed []\n1.1 message message/rfc822 []\n"
       "1.1.1 multipart multipart/mixed []\n1.1.1.1 leaf text/plain [inner]\n"},
      {"encoded nested message",
       "1 multipart multipart/mixed []\n"
       "1.1 opaque message/rfc822 [U3ViamVjdDogeAoKYm9keQo=]\n"},
      {"empty nested message",
       "1 multipart multipart/mixed []\n1.1 message message/rfc822 []\n"
       "1.1.1 leaf text/plain []\n"},
      {"nested message with mbox line",
       "1 multipart multipart/mixed []\n1.1 message message/rfc822 []\n"
       "1.1.1 leaf text/plain [inner]\n"},
      {"nested message without header",
       "1 multipart multipart/mixed []\n1.1 message message/rfc822 []\n"
       "1.1.1 leaf text/plain [no header here]\n"},
      {"digest",
       "1 multipart multipart/digest []\n1.1 message message/rfc822 []\n"
       "1.1.1 leaf text/plain [first]\n1.2 leaf text/plain [second]\n"},
      {"root message", "1 message message/rfc822 []\n1.1 leaf text/plain [body\\n]\n"},
      {"partial message", "1 opaque message/partial [Subject: inner\\n\\nbody\\n]\n"},
  };
  for (const Outline& one : cases) {
    EXPECT_EQ(outline(*mail(bytesOf(one.name))), one.expected) << one.name;
  }
}

TEST(Structure, BeginsTheBodyAtAnOwnDelimiterInTheHeader) {
  const std::string bytes =
      "Subject: s\nContent-Type: multipart/mixed; boundary=b\n--b\nContent-Type: text/html\n\n"
      "hidden?\n--b--\n";
  auto message = mail(bytes);
  EXPECT_EQ(outline(*message), "1 multipart multipart/mixed []\n1.1 leaf text/html [hidden?]\n");
  EXPECT_TRUE(hasDefect(*message, DefectKind::MissingBlankLine));
  EXPECT_EQ(message->toString(), bytes);
}

TEST(Structure, OfBlankDelimitersWithCrLf) {
  const std::string bytes =
      "Content-Type: multipart/mixed; boundary=b\r\n\r\npre\r\n\r\n--b\r\n\r\none\r\n\r\n--b\r\n"
      "Content-Type: text/html\r\n\r\ntwo\r\n--b--\r\nepi\r\n";
  EXPECT_EQ(outline(*mail(bytes)),
            "1 multipart multipart/mixed [pre\\r\\n]\n1.1 leaf text/plain [one\\r\\n]\n"
            "1.2 leaf text/html [two]\n");
}

TEST(Structure, ReportsDefects) {
  const std::pair<const char*, DefectKind> cases[] = {
      {"empty", DefectKind::NoHeader},
      {"no header", DefectKind::NoHeader},
      {"garbage inside", DefectKind::NamelessHeaderLine},
      {"garbage first", DefectKind::NamelessHeaderLine},
      {"no blank line", DefectKind::MissingBlankLine},
      {"bare CR in header", DefectKind::BareCr},
      {"only bare CRs", DefectKind::BareCr},
      {"no boundary", DefectKind::MissingBoundary},
      {"no part", DefectKind::MissingParts},
      {"unclosed", DefectKind::UnclosedMultipart},
      {"inner unclosed", DefectKind::UnclosedMultipart},
  };
  for (const auto& [name, kind] : cases) {
    EXPECT_TRUE(hasDefect(*mail(bytesOf(name)), kind)) << name;
  }
  EXPECT_TRUE(mail(bytesOf("plain parts"))->defects().empty());
  EXPECT_TRUE(hasDefect(*mail("Content-Type: multipart/mixed; boundary=b\n"
                              "Content-Transfer-Encoding: base64\n\n--b\n\nx\n--b--\n"),
                        DefectKind::EncodedMultipart));
  EXPECT_TRUE(hasDefect(*mail("Content-Type: message/rfc822\n"
                              "Content-Transfer-Encoding: base64\n\nU3ViamVjdDogeAo=\n"),
                        DefectKind::EncodedMessage));
}

TEST(Structure, TellsWhetherAMultipartReadAsALeafMayHoldParts) {
  const std::string noBoundary = "Content-Type: multipart/mixed\n\n";
  const std::string otherBoundary = "Content-Type: multipart/mixed; boundary=b\n\n";
  const std::string outer = "Content-Type: multipart/mixed; boundary=o\n\n--o\n";
  const std::pair<std::string, bool> cases[] = {
      {noBoundary, false},
      {noBoundary + "text\n-- \nsignature\n--\n", false},
      {noBoundary + "a --b\n-b\n", false},
      {noBoundary + "--b\n\nx\n--b--\n", true},
      {noBoundary + "text\r\n--b", true},
      {otherBoundary, false},
      {otherBoundary + "text\n", false},
      {otherBoundary + "text\n--c\n\nx\n", true},
      {otherBoundary + "--c\n\nx\n--b\n\nx\n--b--\n", false},
      {outer + noBoundary + "text\n--o--\n", false},
      {outer + noBoundary + "text\n--b\n--o--\n", true},
      {outer + otherBoundary + "--c\n--o\n\n--p\n--o--\n", true},
      {outer + "\n--p\n--o--\n", false},
  };
  for (const auto& [bytes, unread] : cases) {
    const auto message = mail(bytes);
    EXPECT_EQ(hasDefect(*message, DefectKind::UnreadParts), unread) << bytes;
    EXPECT_EQ(message->toString(), bytes);
  }
}

TEST(Structure, DefectListEnds) {
  std::string bytes = "Content-Type: multipart/mixed; boundary=b\n\n";
  for (int i = 0; i < 3000; ++i) bytes += "--b\nContent-Type: multipart/mixed\n\nx\n";
  auto message = mail(bytes);
  EXPECT_EQ(message->defects().size(), 1001u);
  EXPECT_EQ(message->defects().back().kind, DefectKind::TooManyDefects);
  EXPECT_EQ(message->toString(), bytes);
}

TEST(Limits, OfDepthLeaveTheRestInALeafAndSaySo) {
  Limits limits;
  limits.maxDepth = 5;
  const std::string parts = nestedMultiparts(20, 0, "\n");
  auto message = Message::parse(host::message::Buffer::copyOf(parts), limits);
  EXPECT_EQ(message->entityCount(), 5u);
  EXPECT_TRUE(hasDefect(*message, DefectKind::TooDeep));
  EXPECT_EQ(message->toString(), parts);
  EXPECT_NE(at(*message, "1.1.1.1.1")->decodedContent().find("innermost"), std::string::npos);
  const std::string messages = nestedMessages(20, "\n");
  message = Message::parse(host::message::Buffer::copyOf(messages), limits);
  EXPECT_EQ(message->entityCount(), 5u);
  EXPECT_TRUE(hasDefect(*message, DefectKind::TooDeep));
  EXPECT_EQ(at(*message, "1.1.1.1.1")->kind(), OvMsgEntityKind::OpaqueMessage);
  EXPECT_EQ(message->toString(), messages);
}

TEST(Limits, OfPartsLeaveTheRestInTheLastAndSaySo) {
  Limits limits;
  limits.maxParts = 10;
  const std::string bytes = tinyParts(100, "\n");
  auto message = Message::parse(host::message::Buffer::copyOf(bytes), limits);
  EXPECT_EQ(message->entityCount(), 10u);
  EXPECT_TRUE(hasDefect(*message, DefectKind::TooManyParts));
  EXPECT_EQ(message->toString(), bytes);
  EXPECT_NE(at(*message, "1.9")->body().find("--b--"), std::string_view::npos);
}

TEST(Limits, OfFieldsLeaveTheRestInOneAndSaySo) {
  Limits limits;
  limits.maxHeaderFields = 10;
  const std::string bytes = manyHeaders(100, "\n");
  auto message = Message::parse(host::message::Buffer::copyOf(bytes), limits);
  EXPECT_EQ(message->firstEntity()->headerCount(), 11);
  EXPECT_EQ(message->firstEntity()->headerAt(10)->name(), nullptr);
  EXPECT_TRUE(hasDefect(*message, DefectKind::TooManyHeaderFields));
  EXPECT_EQ(message->toString(), bytes);
}

TEST(Structure, ReadsContentTypesAsWritten) {
  const std::pair<const char*, const char*> cases[] = {
      {"text/html", "text/html"},
      {"Text/HTML; charset=x", "text/html"},
      {"text/html (comment); charset=x", "text/html"},
      {"text / html", "text/html"},
      {"text", "text/plain"},
      {"", "text/plain"},
      {"/", "text/plain"},
      {"text/", "text/plain"},
      {"(a (nested) comment) text/(x)html", "text/html"},
      {"text/html charset=x", "text/html"},
      {"image/png;", "image/png"},
      {"application/vnd.ms-excel", "application/vnd.ms-excel"},
  };
  for (const auto& [value, type] : cases) {
    auto message = mail(std::string("Content-Type: ") + value + "\n\n");
    EXPECT_EQ(message->firstEntity()->contentType(), type) << value;
  }
}

TEST(Structure, FindsBoundariesHoweverTheyAreWritten) {
  for (const char* parameter :
       {"boundary=b", "boundary=\"b\"", "BOUNDARY=b", "charset=x; boundary = \"b\"",
        "boundary*=us-ascii''b", "boundary*0=\"b\"", "boundary=b (comment)", "boundary=\"b \"",
        "\r\n boundary=\"b\"", "x=\"a;boundary=c\"; boundary=b"}) {
    auto message =
        mail(std::string("Content-Type: multipart/mixed; ") + parameter + "\n\n--b\n\nx\n--b--\n");
    EXPECT_EQ(message->entityCount(), 2u) << parameter;
  }
}

TEST(Content, IsDecoded) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"7bit", "a=20\n", "a=20\n"},
      {"Quoted-Printable", "a=20b=\nc\n", "a bc\n"},
      {"base64", "SGVs\nbG8=\n", "Hello"},
      {"BASE64 (comment)", "SGVsbG8=", "Hello"},
      {"base64", "SGVsbG8", "Hello"},
      {"base64", "SGVsbG8=V29ybGQ=", "HelloWorld"},
      {"base64", "SGVsbG8=\n\nV29ybGQ", "HelloWorld"},
      {"base64", "=SGVs", "Hel"},
      {"quoted-printable", "a=", "a"},
      {"quoted-printable", "a=4", "a=4"},
      {"x-uuencode", "text before\nbegin 644 x\n%:&5L;&\\`\n`\nend\n", "hello"},
      {"unknown", "abc", "abc"},
      {"base64", "", ""},
  };
  for (const auto& [encoding, body, content] : cases) {
    auto message = mail(std::string("Content-Type: application/octet-stream\n"
                                    "Content-Transfer-Encoding: ") +
                        encoding + "\n\n" + body);
    const Entity& root = *message->firstEntity();
    EXPECT_EQ(root.decodedContent(), content) << encoding;
    EXPECT_EQ(root.decodedSize(), std::string(content).size()) << encoding;
    EXPECT_EQ(root.decodedContent(2), std::string(content).substr(0, 2)) << encoding;
  }
}

TEST(Content, OfManyPiecesIsWhole) {
  std::string body;
  std::string expected;
  while (expected.size() < 300000) {
    body += "QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVphYmNkZWZnaGlqa2xtbm9wcXJzdHV2\r\n";
    expected += "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuv";
  }
  auto message = mail("Content-Transfer-Encoding: base64\r\n\r\n" + body);
  EXPECT_EQ(message->firstEntity()->decodedContent(), expected);
}

TEST(FileName, IsReadFromDispositionThenType) {
  const std::pair<const char*, const char*> cases[] = {
      {"Content-Disposition: attachment; filename=\"a b.txt\"", "a b.txt"},
      {"Content-Disposition: attachment; filename*=utf-8''%E2%82%AC.txt", "\xE2\x82\xAC.txt"},
      {"Content-Disposition: attachment; filename*0=\"ab\"; filename*1=\"cd\"", "abcd"},
      {"Content-Disposition: attachment; filename=\"=?utf-8?Q?=E2=82=AC?=\"", "\xE2\x82\xAC"},
      {"Content-Type: image/png; name=p.png\nContent-Disposition: inline", "p.png"},
      {"Content-Type: image/png; name=p.png\nContent-Disposition: inline; filename=q.png", "q.png"},
  };
  for (const auto& [header, name] : cases) {
    auto message = mail(std::string(header) + "\n\n");
    ASSERT_NE(message->firstEntity()->fileName(), nullptr) << header;
    EXPECT_STREQ(message->firstEntity()->fileName()->name(), name);
    EXPECT_EQ(message->firstEntity()->fileNameText(), name);
  }
  auto none = mail("Content-Disposition: attachment\n\n");
  EXPECT_EQ(none->firstEntity()->fileName(), nullptr);
  auto empty = mail("Content-Disposition: attachment; filename=\"\"\n\n");
  ASSERT_NE(empty->firstEntity()->fileName(), nullptr);
  EXPECT_EQ(empty->firstEntity()->fileName()->name(), nullptr);
}

}  // namespace
}  // namespace message_test
