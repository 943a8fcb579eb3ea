// Text that is not ASCII in header fields (RFC 2047), and charsets.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/message/charset.h"
#include "host/message/encoded_text.h"
#include "host/message/mime_values.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_header.h"
#include "tests/unit/host/message/support/mail.h"

namespace message_test {
namespace {

using host::message::convertCharset;
using host::message::OnMisfit;
namespace mime = host::message::mime;

struct Sample {
  const char* charset;
  const char* utf8;
};

const Sample kSamples[] = {
    {"utf-8", "\xE3\x83\x86\xE3\x82\xB9\xE3\x83\x88\xE3\x81\xAE\xE4\xBB\xB6\xE5\x90\x8D"},
    {"utf-8", "gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80 e\xCC\x81"},
    {"iso-2022-jp", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E abc \xE4\xBB\xB6\xE5\x90\x8D"},
    {"shift_jis", "\xE8\xA1\xA8\xE3\x82\xBD\xE8\x83\xBD \xEF\xBD\xB1"},
    {"euc-jp", "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E"},
    {"gb18030", "\xE4\xB8\xAD\xE6\x96\x87 \xF0\xA0\x80\x80"},
    {"gb2312", "\xE4\xB8\xAD\xE6\x96\x87"},
    {"big5", "\xE4\xB8\xAD\xE6\x96\x87\xE5\x8A\x9F"},
    {"euc-kr", "\xED\x95\x9C\xEA\xB5\xAD\xEC\x96\xB4"},
    {"koi8-r", "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82"},
    {"iso-8859-1", "caf\xC3\xA9 cr\xC3\xA8me"},
    {"iso-8859-2", "\xC5\x81\xC3\xB3\xC5\xBA"},
    {"iso-8859-15", "\xE2\x82\xAC"},
    {"windows-1250", "\xC5\x81\xC3\xB3"},
    {"windows-1251", "\xD0\x9F\xD1\x80"},
    {"windows-1252", "\xE2\x82\xAC \xE2\x80\x9Cx\xE2\x80\x9D"},
    {"windows-1253", "\xCE\xB1\xCE\xB2"},
};

std::string in(const char* charset, const std::string& utf8) {
  std::string out;
  EXPECT_EQ(convertCharset(utf8, "utf-8", charset, OnMisfit::Fail, OnMisfit::Fail, out), 0)
      << charset;
  return out;
}

/// Every encoded word within bounds and, taken alone, whole characters of its charset.
void expectWellFormed(const std::string& text, const std::string& name) {
  for (std::size_t from = 0; from < text.size();) {
    const std::size_t end = std::min(text.find('\n', from), text.size());
    std::string_view line = std::string_view(text).substr(from, end - from);
    while (line.ends_with('\r')) line.remove_suffix(1);
    if (line.find("=?") != std::string_view::npos) {
      EXPECT_LE(line.size(), 76u) << name << line;
    }
    from = end + 1;
  }
  for (auto word = host::message::findEncodedWord(text); word;
       word = host::message::findEncodedWord(text, word->end)) {
    const std::string alone = text.substr(word->begin, word->end - word->begin);
    EXPECT_LE(alone.size(), 75u) << name;
    auto message = mail("S: " + alone + "\n\n");
    int words = 0;
    const std::string bytes = message->firstEntity()->header("s")->decodedValue(words);
    std::string utf8;
    EXPECT_EQ(convertCharset(bytes, word->charset, "utf-8", OnMisfit::Fail, OnMisfit::Fail, utf8),
              0)
        << name << alone;
    EXPECT_EQ(utf8.find("\xEF\xBF\xBD"), std::string::npos) << name << alone;
  }
}

TEST(EncodedWords, ComeBackInEveryCharsetAndLength) {
  for (const Sample& sample : kSamples) {
    std::string utf8;
    for (int repeat = 1; repeat < 30; ++repeat) {
      utf8 += (repeat % 3 == 0 ? " plain " : "");
      utf8 += sample.utf8;
      for (const char* field : {"Subject", "X-A", "X-A-Rather-Long-Name-For-A-Header-Field-Of-Mail",
                                "X-Longer-Than-Anybody-Would-Ever-Make-The-Name-Of-A-Field-Of-Any-"
                                "Mail"}) {
        const std::string name = std::string(sample.charset) + " " + field + ": ";
        auto message = mail("A: 1\r\n\r\n");
        const std::string value = in(sample.charset, utf8);
        ASSERT_TRUE(msgu::setHeader(message->firstEntity(), field, value.c_str(), sample.charset));
        const std::string text = message->firstEntity()->headerText();
        EXPECT_TRUE(host::message::isAscii(text)) << name;
        if (std::string_view(field).size() < 60) expectWellFormed(text, name);
        auto again = mail(message->toString());
        ASSERT_EQ(again->firstEntity()->headerCount(), 2) << name;
        const auto* header = again->firstEntity()->header(field);
        int words = 0;
        EXPECT_EQ(header->decodedValue(words), value) << name;
        EXPECT_EQ(words, 1);
        EXPECT_EQ(header->charset(), std::string(sample.charset)) << name;
      }
    }
  }
}

TEST(EncodedWords, LeaveAsciiAsItIs) {
  auto message = mail("A: 1\n\n");
  ASSERT_TRUE(msgu::setHeader(message->firstEntity(), "Subject", "plain words", "iso-2022-jp"));
  EXPECT_EQ(message->toString(), "A: 1\nSubject: plain words\n\n");
}

TEST(EncodedWords, EncodeAWordThatWouldBeTakenForOne) {
  auto message = mail("A: 1\n\n");
  const char* value = "=?x?= \xC3\xA9";
  ASSERT_TRUE(msgu::setHeader(message->firstEntity(), "Subject", value, "utf-8"));
  int words = 0;
  EXPECT_STREQ(message->firstEntity()->header("subject")->decodedValue(words), value);
}

TEST(EncodedWords, StandOnlyInDisplayNamesOfAddressFields) {
  auto message = mail("A: 1\n\n");
  ASSERT_TRUE(msgu::setHeader(message->firstEntity(), "From",
                              "\"J\xC3\xBCrg \\\"J\\\" M\" <j@example.com>, "
                              "Ren\xC3\xA9 X<r@example.com>, z@example.com",
                              "utf-8"));
  const std::string text = message->firstEntity()->headerText();
  EXPECT_NE(text.find("<j@example.com>,"), std::string::npos) << text;
  EXPECT_TRUE(host::message::isAscii(text)) << text;
  const auto read = mime::addresses(mime::unfolded(text.substr(text.find("From:") + 5)), 10);
  ASSERT_EQ(read.size(), 3u) << text;
  EXPECT_EQ(read[0].displayName, "J\xC3\xBCrg \"J\" M");
  EXPECT_EQ(read[0].address, "j@example.com");
  EXPECT_EQ(read[1].displayName, "Ren\xC3\xA9 X");
  EXPECT_EQ(read[1].address, "r@example.com");
  EXPECT_EQ(read[2].address, "z@example.com");
}

TEST(EncodedWords, FailOnTextThatIsNotInTheCharset) {
  auto message = mail("Subject: old\n\n");
  OvMsgHeader* subject = message->firstEntity()->header("subject");
  EXPECT_EQ(subject->setValue("\xFF", "utf-8"), OVMSGERR::MalformedText);
  EXPECT_EQ(subject->setValue("\xC3\xA9", "us-ascii"), OVMSGERR::MalformedText);
  EXPECT_EQ(subject->setValue("x", "no-such-charset"), OVMSGERR::UnknownCharset);
  EXPECT_EQ(message->toString(), "Subject: old\n\n");
}

TEST(GenRfc2047, MakesWordsOrLeavesAscii) {
  int error = -1;
  char* words = msgu::genRfc2047("plain", "utf-8", error);
  EXPECT_STREQ(words, "plain");
  EXPECT_EQ(error, 0);
  OvMsg_FreeHeaderValue(words);
  std::string text;
  for (int i = 0; i < 40; ++i) text += "\xE6\x97\xA5\xE6\x9C\xAC";
  words = msgu::genRfc2047(text.c_str(), "iso-2022-jp", error);
  ASSERT_NE(words, nullptr);
  EXPECT_TRUE(std::string(words).starts_with("=?iso-2022-jp?"));
  std::string lines(words);
  EXPECT_EQ(host::message::decodedText(lines), text);
  for (char& c : lines) c = c == ' ' ? '\n' : c;
  expectWellFormed(lines, "genRfc2047 ");
  OvMsg_FreeHeaderValue(words);
  EXPECT_EQ(msgu::genRfc2047("\xFF", "utf-8", error), nullptr);
  EXPECT_EQ(error, OVMSGERR::MalformedText);
  EXPECT_EQ(msgu::genRfc2047(nullptr, "utf-8", error), nullptr);
  EXPECT_EQ(error, OVMSGERR::InvalidArgument);
}

TEST(GenRfc2047, WritesUtf8WhereTheCharsetCannotCarryTheText) {
  int error = -1;
  for (const char* charset : {"us-ascii", "iso-8859-1", "no-such-charset"}) {
    char* words = msgu::genRfc2047("\xE6\x97\xA5", charset, error);
    EXPECT_STREQ(words, "=?utf-8?B?5pel?=") << charset;
    OvMsg_FreeHeaderValue(words);
  }
}

TEST(GenRfc2047, CanStandBetweenQuotes) {
  int error = -1;
  for (const char* name : {"a \"b\" c", "a\\", "\" <x@y.example>, \""}) {
    char* words = msgu::genRfc2047(name, "us-ascii", error);
    ASSERT_NE(words, nullptr);
    EXPECT_EQ(std::string(words).find_first_of("\"\\<>"), std::string::npos) << words;
    EXPECT_EQ(host::message::decodedText(words), name);
    OvMsg_FreeHeaderValue(words);
  }
}

TEST(GenRfc2047, ResultGoesIntoAFieldOnLinesOfSeventySix) {
  int error = 0;
  std::string name;
  for (int i = 0; i < 40; ++i) name += "\xE6\x97\xA5";
  char* words = msgu::genRfc2047(name.c_str(), "utf-8", error);
  const std::string value = std::string("\"") + words + "\" <a@example.com>";
  OvMsg_FreeHeaderValue(words);
  auto message = mail("A: 1\r\n\r\n");
  ASSERT_TRUE(msgu::setHeader(message->firstEntity(), "From", value.c_str(), nullptr));
  expectWellFormed(message->firstEntity()->headerText(), "From: ");
  std::string read;
  ASSERT_TRUE(msgu::getHeader(message->firstEntity(), "From", read));
  EXPECT_EQ(read, value);
}

TEST(Conversion, OfSamplesThereAndBack) {
  for (const Sample& sample : kSamples) {
    std::string there;
    std::string back;
    int error = -1;
    EXPECT_TRUE(msgu::conv(sample.utf8, "utf-8", sample.charset, there, error, false));
    EXPECT_TRUE(msgu::conv(there.c_str(), sample.charset, "utf-8", back, error, false));
    EXPECT_EQ(back, sample.utf8) << sample.charset;
    EXPECT_EQ(error, 0);
  }
}

TEST(Conversion, StrictFailsWhereLossyWritesAQuestionMark) {
  std::string out;
  int error = 0;
  EXPECT_FALSE(
      msgu::conv("a\xFF"
                 "b",
                 "utf-8", "iso-8859-1", out, error, false));
  EXPECT_EQ(error, OVMSGERR::MalformedText);
  EXPECT_EQ(out, "");
  EXPECT_TRUE(
      msgu::conv("a\xFF"
                 "b",
                 "utf-8", "iso-8859-1", out, error, true));
  EXPECT_EQ(out, "a?b");
  EXPECT_FALSE(msgu::conv("a\xE2\x82\xAC", "utf-8", "iso-8859-1", out, error, false));
  EXPECT_EQ(error, OVMSGERR::UnencodableText);
  EXPECT_TRUE(msgu::conv("a\xE2\x82\xAC", "utf-8", "iso-8859-1", out, error, true));
  EXPECT_EQ(out, "a?");
  // A character without a visible form is a loss too.
  EXPECT_FALSE(msgu::conv("a\xE2\x80\x8B", "utf-8", "iso-8859-1", out, error, false));
  EXPECT_FALSE(msgu::conv("a", "utf-8", "nonsense", out, error, true));
  EXPECT_EQ(error, OVMSGERR::UnknownCharset);
  EXPECT_FALSE(msgu::conv(nullptr, "utf-8", "utf-8", out, error, true));
}

TEST(Conversion, IntoABufferNeedsRoomForTheNul) {
  char out[8];
  int error = 0;
  EXPECT_STREQ(msgu::conv("1234567", "utf-8", "utf-8", out, 8, error, false), "1234567");
  EXPECT_EQ(msgu::conv("12345678", "utf-8", "utf-8", out, 8, error, false), nullptr);
  EXPECT_EQ(error, OVMSGERR::BufferTooSmall);
  EXPECT_STREQ(out, "");
}

TEST(ConverterString, ReportsLengthAndKeepsItsFlags) {
  char out[64];
  unsigned room = sizeof out;
  EXPECT_EQ(OvMsg_CharsetConverterString("caf\xE9", "iso-8859-1", out, "utf-8", room, 1, 63), 0);
  EXPECT_STREQ(out, "caf\xC3\xA9");
  EXPECT_EQ(room, 5u);
  room = sizeof out;
  EXPECT_EQ(OvMsg_CharsetConverterString("a\xFF", "utf-8", out, "utf-8", room, 1, 63),
            OVMSGERR::MalformedText);
  EXPECT_STREQ(out, "");
  EXPECT_EQ(OvMsg_CharsetConverterString("a\xFF", "utf-8", out, "utf-8", room, 0, 63), 0);
  EXPECT_STREQ(out, "a?");
  room = sizeof out;
  EXPECT_EQ(OvMsg_CharsetConverterString("\xE2\x82\xAC", "utf-8", out, "iso-8859-1", room, 0, 63),
            OVMSGERR::UnencodableText);
  room = 3;
  EXPECT_EQ(OvMsg_CharsetConverterString("abc", "utf-8", out, "utf-8", room, 0, 63),
            OVMSGERR::BufferTooSmall);
  room = sizeof out;
  EXPECT_EQ(OvMsg_CharsetConverterString("A", "utf-8", out, "iso-10646-ucs-2", room, 0, 63), 0);
  EXPECT_EQ(room, 2u);
  EXPECT_EQ(std::string(out, 2), std::string("\0A", 2));
}

}  // namespace
}  // namespace message_test
