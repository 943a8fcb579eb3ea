// Header fields: reading, setting, adding, removing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "host/message/field_lookup.h"
#include "host/message/header_field.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_header.h"
#include "tests/unit/host/message/support/mail.h"

namespace message_test {
namespace {

using host::message::Entity;

const char kMail[] =
    "Received: one\r\n\tand on\r\nSubject:  Hello\r\n there  \r\nX-A: 1\r\nx-a: 2\r\n"
    "Content-Type: Text/Plain; charset=\"UTF-8\"\r\n\r\nbody\r\n";

std::string setAndRender(std::string_view bytes, const char* name, const char* value,
                         const char* charset = nullptr) {
  auto message = mail(bytes);
  EXPECT_TRUE(msgu::setHeader(message->firstEntity(), name, value, charset));
  return message->toString();
}

std::size_t longestLine(const std::string& text) {
  std::size_t longest = 0;
  for (std::size_t from = 0, end = 0; end < text.size(); from = end + 1) {
    end = std::min(text.find('\n', from), text.size());
    longest = std::max(longest, end - from);
  }
  return longest;
}

TEST(HeaderField, IsReadUnfoldedAndTrimmed) {
  auto message = mail(kMail);
  OvMsgHeader* subject = message->firstEntity()->header("SUBJECT");
  ASSERT_NE(subject, nullptr);
  EXPECT_STREQ(subject->name(), "Subject");
  EXPECT_STREQ(subject->value(), "Hello there");
  EXPECT_STREQ(subject->rawValue(), "Subject:  Hello\r\n there  \r\n");
  EXPECT_EQ(subject->charset(), nullptr);
  OvMsgHeader* type = message->firstEntity()->header("content-type");
  EXPECT_STREQ(type->value(), "Text/Plain");
  EXPECT_EQ(message->firstEntity()->headerCount(), 5);
  EXPECT_EQ(message->firstEntity()->headerAt(5), nullptr);
  EXPECT_EQ(message->firstEntity()->headerAt(-1), nullptr);
  EXPECT_EQ(message->firstEntity()->header("Nothing"), nullptr);
  EXPECT_EQ(message->firstEntity()->header(nullptr), nullptr);
}

TEST(HeaderField, GivesTheWholeValueThroughTheUtilities) {
  auto message = mail(kMail);
  std::string value;
  EXPECT_TRUE(msgu::getHeader(message->firstEntity(), "Content-Type", value));
  EXPECT_EQ(value, "Text/Plain; charset=\"UTF-8\"");
  EXPECT_FALSE(msgu::getHeader(message->firstEntity(), "Missing", value));
  EXPECT_EQ(value, "");
  EXPECT_FALSE(msgu::getHeader(nullptr, "Subject", value));
}

struct Decoding {
  const char* value;
  const char* decoded;
  int words;
  const char* charset;
};

TEST(HeaderField, DecodesWordsIntoTheCharsetOfTheFirst) {
  const Decoding cases[] = {
      {"plain text", "plain text", 0, nullptr},
      {"=?utf-8?Q?caf=C3=A9?=", "caf\xC3\xA9", 1, "utf-8"},
      {"=?ISO-8859-1?Q?caf=E9_?= x", "caf\xE9  x", 1, "iso-8859-1"},
      {"=?iso-8859-1?Q?a?= =?utf-8?Q?=C3=A9?=", "a\xE9", 1, "iso-8859-1"},
      {"=?iso-8859-1?Q?a?= =?utf-8?B?4oKs?=", "a?", 1, "iso-8859-1"},
      {"=?utf-8*en?Q?x?=", "x", 1, "utf-8"},
      {"=?iso-2022-jp?B?GyRCJUYlOSVIGyhC?=", "\x1b$B%F%9%H\x1b(B", 1, "iso-2022-jp"},
      {"=?utf-16?B?RABlAHMA?= =?utf-16?B?aQDpAA==?=", "Desi\xC3\xA9", 1, "utf-8"},
      {"=?utf-16?B?/v8ARABl?=", "De", 1, "utf-8"},
      {"=?utf-16be?B?AEQAZQ==?= x", "De x", 1, "utf-8"},
      {"=?x-nobody-knows?Q?a=E9?=", "a\xE9", 1, "x-nobody-knows"},
      {"=?utf-8?X?x?=", "=?utf-8?X?x?=", 0, nullptr},
      {"=?utf-8?Q?open", "=?utf-8?Q?open", 0, nullptr},
  };
  for (const Decoding& one : cases) {
    auto message = mail(std::string("Subject: ") + one.value + "\n\n");
    OvMsgHeader* subject = message->firstEntity()->header("subject");
    int words = -1;
    EXPECT_STREQ(subject->decodedValue(words), one.decoded) << one.value;
    EXPECT_EQ(words, one.words) << one.value;
    EXPECT_STREQ(subject->charset(), one.charset) << one.value;
  }
}

TEST(HeaderField, GivesWhatStandsBehindANul) {
  auto message = mail(std::string("Subject: a\0b =?utf-8?Q?c=00d?=\n\n", 32));
  OvMsgHeader* subject = message->firstEntity()->header("subject");
  int words = -1;
  EXPECT_STREQ(subject->value(), "a b =?utf-8?Q?c=00d?=");
  EXPECT_STREQ(subject->decodedValue(words), "a b c d");
  EXPECT_STREQ(subject->rawValue(), "Subject: a b =?utf-8?Q?c=00d?=\n");
}

TEST(HeaderField, GivesTheAddressBehindANameOfAnyLength) {
  for (const std::size_t length : {8000u, 8192u, 20'000u}) {
    const std::string name(length, 'n');
    for (const std::string& value :
         {name + " <a@example.com>", "\"" + name + ", x\" <a@example.com>",
          "b@example.com, " + name + " <a@example.com>, c@example.com"}) {
      const auto message = mail("To: " + value + "\n\n");
      const auto fields = host::message::fieldsNamed(*message->firstEntity(), "to");
      const auto found = host::message::addressList(*fields.at(0));
      EXPECT_EQ(std::count(found.begin(), found.end(), "a@example.com"), 1)
          << length << value.substr(0, 20);
      EXPECT_EQ(found.size(), value[0] == 'b' ? 3u : 1u);
    }
  }
}

TEST(HeaderField, GivesItsFirstAddress) {
  const std::pair<const char*, const char*> cases[] = {
      {"a@example.com", "a@example.com"},
      {"\"B, C\" <b@example.com>, c@example.com", "b@example.com"},
      {"group: d@example.com, e@example.com;", "d@example.com"},
      {"=?utf-8?Q?=C3=84?= <f@example.com>", "f@example.com"},
      {"", nullptr},
  };
  for (const auto& [value, address] : cases) {
    auto message = mail(std::string("From: ") + value + "\n\n");
    EXPECT_STREQ(message->firstEntity()->header("from")->address(), address) << value;
  }
}

TEST(SetHeader, ChangesTheFirstOfAName) {
  const std::string changed = setAndRender(kMail, "X-A", "3");
  EXPECT_NE(changed.find("X-A: 3\r\nx-a: 2\r\n"), std::string::npos);
}

TEST(SetHeader, AddsAtTheEndInTheStyleOfTheHeader) {
  EXPECT_EQ(setAndRender("A: 1\nB: 2\n\nbody", "C", "3"), "A: 1\nB: 2\nC: 3\n\nbody");
  EXPECT_EQ(setAndRender("A: 1\r\nB: 2\n\r\nb", "C", "3"), "A: 1\r\nB: 2\nC: 3\r\n\r\nb");
  EXPECT_EQ(setAndRender("\nbody\n", "C", "3"), "C: 3\n\nbody\n");
  EXPECT_EQ(setAndRender("A: 1", "C", "3"), "A: 1\r\nC: 3");
  EXPECT_EQ(setAndRender("A: 1\nB: 2", "C", "3"), "A: 1\nB: 2\nC: 3");
  EXPECT_EQ(setAndRender("A: 1\n", "C", "3"), "A: 1\nC: 3\n");
  EXPECT_EQ(setAndRender("A: 1\nthe body\n", "C", "3"), "A: 1\nC: 3\nthe body\n");
  EXPECT_EQ(setAndRender("From x\nA: 1\n\nb", "C", "3"), "From x\nA: 1\nC: 3\n\nb");
}

// Many readers take such a line for the begin of the body.
TEST(SetHeader, PutsANewFieldBeforeTheFirstLineThatIsNoField) {
  EXPECT_EQ(setAndRender("A: 1\nno field\n\nbody", "C", "3"), "A: 1\nC: 3\nno field\n\nbody");
  EXPECT_EQ(setAndRender("A: 1\nno field\nB: 2\n\nb", "C", "3"), "A: 1\nC: 3\nno field\nB: 2\n\nb");
}

TEST(SetHeader, PutsANewFieldBeforeABareCr) {
  EXPECT_EQ(setAndRender("A: 1\rB: 2\r", "C", "3"), "C: 3\r\nA: 1\rB: 2\r");
  EXPECT_EQ(setAndRender("A: 1\nB: 2\rx\nD: 4\n\nb", "C", "3"), "A: 1\nC: 3\nB: 2\rx\nD: 4\n\nb");
}

TEST(SetHeader, LeavesEveryOtherByteAlone) {
  std::string expected = kMail;
  expected.replace(expected.find("  Hello\r\n there  "), 17, " x");
  EXPECT_EQ(setAndRender(kMail, "Subject", "x"), expected);
}

TEST(SetHeader, RefusesNamesThatAreNone) {
  for (const char* name : {"", "A B", "A:", "A\r\nB", "\xC3\x84", "\t"}) {
    auto message = mail(kMail);
    EXPECT_FALSE(msgu::setHeader(message->firstEntity(), name, "x", nullptr)) << name;
    EXPECT_EQ(message->toString(), kMail) << name;
  }
  EXPECT_FALSE(msgu::setHeader(nullptr, "A", "x", nullptr));
  auto message = mail(kMail);
  EXPECT_FALSE(msgu::setHeader(message->firstEntity(), nullptr, "x", nullptr));
  EXPECT_FALSE(msgu::setHeader(message->firstEntity(), "A", nullptr, nullptr));
}

TEST(SetHeader, NeverOpensANewField) {
  const std::pair<const char*, const char*> cases[] = {
      {"a\r\nBcc: x@example.com", "a Bcc: x@example.com"},
      {"a\nBcc: x", "a Bcc: x"},
      {"a\rBcc: x", "a Bcc: x"},
      {"a\r\n b", "a\r\n b"},
      {"a\n\tb", "a\r\n\tb"},
      {"a\r\n\r\n b", "a \r\n b"},
      {"a\r\n \r\n b", "a  \r\n b"},
      {"a\r\n ", "a"},
      {"\r\na", "a"},
      {"a\r\n", "a"},
  };
  for (const auto& [value, written] : cases) {
    EXPECT_EQ(setAndRender("S: 1\r\n\r\n", "X", value),
              std::string("S: 1\r\nX: ") + written + "\r\n\r\n")
        << value;
    EXPECT_EQ(mail(setAndRender("S: 1\r\n\r\n", "X", value, "utf-8"))->firstEntity()->headerCount(),
              2);
  }
}

TEST(SetHeader, BackToTheReceivedValueRestoresTheBytes) {
  auto message = mail(kMail);
  Entity* root = message->firstEntity();
  ASSERT_TRUE(msgu::setHeader(root, "Subject", "x", nullptr));
  EXPECT_TRUE(message->changed());
  ASSERT_TRUE(msgu::setHeader(root, "Subject", "Hello there", nullptr));
  EXPECT_EQ(message->toString(), kMail);
  EXPECT_FALSE(message->changed());
  ASSERT_TRUE(msgu::setHeader(root, "Subject", "y", "utf-8"));
  ASSERT_TRUE(msgu::setHeader(root, "Subject", "Hello there", "utf-8"));
  EXPECT_EQ(message->toString(), kMail);
  EXPECT_EQ(root->header("content-type")->setParameter("charset", "koi8-r"), 0);
  EXPECT_NE(message->toString(), kMail);
  EXPECT_EQ(root->header("content-type")->setValue("Text/Plain", nullptr), 0);
  EXPECT_EQ(message->toString(), kMail);
}

TEST(SetHeader, BackToTheReceivedEncodedValueRestoresTheBytes) {
  const std::string bytes = "Subject: =?iso-8859-1?B?Y2Fm6Q==?=\n =?iso-8859-1?q?_x?=\n\n";
  auto message = mail(bytes);
  Entity* root = message->firstEntity();
  ASSERT_TRUE(msgu::setHeader(root, "Subject", "[tag] caf\xE9 x", "iso-8859-1"));
  EXPECT_EQ(message->toString(), "Subject: [tag] =?iso-8859-1?Q?caf=E9?= x\n\n");
  ASSERT_TRUE(msgu::setHeader(root, "Subject", "caf\xE9 x", "iso-8859-1"));
  EXPECT_EQ(message->toString(), bytes);
}

TEST(SetHeader, WithoutACharsetStaysInThatOfItsWords) {
  EXPECT_EQ(setAndRender("Subject: =?iso-8859-1?Q?B=FCro?=\n\n", "Subject",
                         "au\xDF"
                         "en"),
            "Subject: =?iso-8859-1?Q?au=DFen?=\n\n");
}

TEST(SetHeader, WithoutACharsetWritesOtherBytesAsTheyStand) {
  EXPECT_EQ(setAndRender("Subject: =?us-ascii?Q?B?=\n\n", "Subject",
                         "au\xDF"
                         "en"),
            "Subject: au\xDF"
            "en\n\n");
  EXPECT_EQ(setAndRender("Subject: =?no-such?Q?B?=\n\n", "Subject",
                         "au\xDF"
                         "en"),
            "Subject: au\xDF"
            "en\n\n");
  EXPECT_EQ(setAndRender("X-A: plain\n\n", "X-A",
                         "au\xDF"
                         "en"),
            "X-A: au\xDF"
            "en\n\n");
}

TEST(SetHeader, EncodesTextThatWouldBeTakenForAWord) {
  EXPECT_EQ(setAndRender("Subject: x\n\n", "Subject", "=?utf-8?Q?=41?= b", "us-ascii"),
            "Subject: =?us-ascii?B?PT91dGYtOD9RPz00MT89?= b\n\n");
  // An address may come with its display name encoded.
  EXPECT_EQ(setAndRender("From: x\n\n", "From", "=?utf-8?Q?=41?= <a@x.example>", "us-ascii"),
            "From: =?utf-8?Q?=41?= <a@x.example>\n\n");
}

TEST(SetHeader, WritesAnEmptyValueWithoutTrailingSpace) {
  EXPECT_EQ(setAndRender("S: 1\n\n", "S", ""), "S:\n\n");
}

TEST(SetHeader, FoldsWhatIsTooLongForALine) {
  std::string value;
  for (int i = 0; i < 300; ++i) value += "word" + std::to_string(i) + " ";
  value.pop_back();
  auto message = mail(setAndRender("S: 1\r\n\r\n", "X-Long", value.c_str()));
  std::string read;
  ASSERT_TRUE(msgu::getHeader(message->firstEntity(), "X-Long", read));
  EXPECT_EQ(read, value);
  const std::string text = message->firstEntity()->headerText();
  for (std::size_t from = 0, end; (end = text.find("\r\n", from)) != std::string::npos;
       from = end + 2) {
    EXPECT_LE(end - from, 998u);
  }
}

TEST(SetHeader, EncodesWordsThatNoLineCanHold) {
  const std::string word(997, 'x');
  EXPECT_EQ(setAndRender("S: 1\n\n", "Subject", word.c_str(), "us-ascii"),
            "S: 1\nSubject: \n " + word + "\n\n");
  for (const char* charset : {"us-ascii", "utf-8", static_cast<const char*>(nullptr)}) {
    const std::string value = "a " + word + "yz b";
    auto message = mail(setAndRender("S: 1\n\n", "Subject", value.c_str(), charset));
    EXPECT_LE(longestLine(message->firstEntity()->headerText()), 76u);
    EXPECT_EQ(message->firstEntity()->field("Subject")->decodedUtf8(), value);
  }
  // Bytes of no charset, and what is no text, stay whole.
  EXPECT_EQ(setAndRender("S: 1\n\n", "X-A", (word + "\xE4").c_str()),
            "S: 1\nX-A: " + word + "\xE4\n\n");
  EXPECT_EQ(setAndRender("S: 1\n\n", "Message-ID", ("<" + word + "@x>").c_str()),
            "S: 1\nMessage-ID: <" + word + "@x>\n\n");
}

TEST(SetHeader, EncodesDisplayNamesThatNoLineCanHold) {
  const std::string name(1200, 'n');
  for (const std::string& written : {name, '"' + name + '"'}) {
    auto message = mail(setAndRender("S: 1\n\n", "From", (written + " <a@x.example>").c_str()));
    EXPECT_LE(longestLine(message->firstEntity()->headerText()), 76u);
    EXPECT_EQ(message->firstEntity()->field("From")->decodedUtf8(), name + " <a@x.example>");
    EXPECT_STREQ(message->firstEntity()->header("From")->address(), "a@x.example");
  }
}

TEST(SetHeader, FoldsListsOfAddressesWithoutBlanks) {
  std::string list;
  std::vector<std::string> addresses;
  for (int i = 0; i < 300; ++i) {
    addresses.push_back("user" + std::to_string(i) + "@x.example");
    list += (i == 0 ? "" : ",") + addresses.back();
  }
  auto message = mail(setAndRender("S: 1\n\n", "To", list.c_str()));
  EXPECT_LE(longestLine(message->firstEntity()->headerText()), 78u);
  EXPECT_EQ(host::message::addressList(*message->firstEntity()->field("To")), addresses);
}

// Whatever words a value is made of: every line fits, and the value reads as what was set.
TEST(SetHeader, KeepsEveryLineWithinItsLimit) {
  std::mt19937 random(20240517);
  const auto below = [&random](unsigned bound) { return static_cast<unsigned>(random() % bound); };
  constexpr std::size_t kLengths[] = {1, 5, 60, 75, 76, 77, 500, 985, 996, 997, 998, 999, 3000};
  const char* const kUnits[] = {"x", "\xC3\xA4", "\xE6\x97\xA5", "=?", "a,", "\"", "\\"};
  for (int round = 0; round < 400; ++round) {
    std::string value;
    for (unsigned words = 1 + below(6); words > 0; --words) {
      const char* unit = kUnits[below(3) == 0 ? below(7) : 0];
      std::string word;
      const std::size_t length = kLengths[below(std::size(kLengths))];
      while (word.size() < length) word += unit;
      value += (value.empty() ? "" : " ") + word;
    }
    const char* name = below(2) == 0 ? "Subject" : "X-Some-Other-Field";
    auto message = mail(setAndRender("S: 1\n\n", name, value.c_str(), "utf-8"));
    ASSERT_LE(longestLine(message->firstEntity()->headerText()), 998u) << value;
    ASSERT_EQ(message->firstEntity()->field(name)->decodedUtf8(), value);
    // In quotes, as a display name.
    std::string quoted = "\"";
    for (const char c : value) {
      if (c == '"' || c == '\\') quoted += '\\';
      quoted += c;
    }
    quoted += "\" <a@x.example>";
    message = mail(setAndRender("S: 1\n\n", "From", quoted.c_str(), "utf-8"));
    ASSERT_LE(longestLine(message->firstEntity()->headerText()), 998u) << quoted;
    ASSERT_STREQ(message->firstEntity()->header("From")->address(), "a@x.example") << quoted;
  }
}

TEST(SetRawValue, StandsBehindTheColonAsItIs) {
  auto message = mail("Subject: Hello\r\nA: 1\r\n\r\n");
  OvMsgHeader* subject = message->firstEntity()->header("subject");
  EXPECT_EQ(subject->setRawValue("[X] Hello", nullptr), 0);
  EXPECT_EQ(message->toString(), "Subject:[X] Hello\r\nA: 1\r\n\r\n");
  EXPECT_EQ(subject->setRawValue(" a\r\nBcc: b\r\n", nullptr), 0);
  EXPECT_EQ(message->toString(), "Subject: a Bcc: b\r\nA: 1\r\n\r\n");
  EXPECT_EQ(subject->setRawValue(" Hello", nullptr), 0);
  EXPECT_FALSE(message->changed());
}

TEST(SetParameter, AddsOrReplacesOne) {
  auto message = mail("Content-Type: text/html; charset=\"x\"; name=y\n\n");
  OvMsgHeader* type = message->firstEntity()->header("content-type");
  EXPECT_EQ(type->setParameter("charset", "utf-8"), 0);
  EXPECT_EQ(message->firstEntity()->contentTypeParameter("charset"), "utf-8");
  EXPECT_EQ(message->firstEntity()->contentTypeParameter("name"), "y");
  EXPECT_EQ(type->setParameter("name", "\xE3\x83\x86.txt"), 0);
  EXPECT_EQ(message->firstEntity()->contentTypeParameter("name"), "\xE3\x83\x86.txt");
  EXPECT_EQ(type->setParameter("name", "a\r\nX: b"), 0);
  EXPECT_EQ(mail(message->toString())->firstEntity()->headerCount(), 1);
  EXPECT_EQ(type->setParameter("na me", "x"), OVMSGERR::InvalidArgument);
  EXPECT_EQ(type->setParameter("name", nullptr), OVMSGERR::InvalidArgument);
  EXPECT_EQ(type->setParameter("name", "\xFF"), OVMSGERR::MalformedText);
}

TEST(RemoveHeader, TakesAllOfANameOrTheOneAtAnIndex) {
  auto message = mail(kMail);
  Entity* root = message->firstEntity();
  EXPECT_TRUE(root->removeHeaderAt(3));
  EXPECT_FALSE(root->removeHeaderAt(9));
  std::string expected = kMail;
  expected.erase(expected.find("x-a: 2\r\n"), 8);
  EXPECT_EQ(message->toString(), expected);
  message = mail(kMail);
  root = message->firstEntity();
  EXPECT_TRUE(root->removeHeader("X-A"));
  EXPECT_FALSE(root->removeHeader("X-A"));
  expected.erase(expected.find("X-A: 1\r\n"), 8);
  EXPECT_EQ(message->toString(), expected);
}

TEST(RemoveHeader, OfAllFieldsLeavesTheBlankLine) {
  auto message = mail("A: 1\nB: 2\n\nbody");
  EXPECT_TRUE(message->firstEntity()->removeHeader("A"));
  EXPECT_TRUE(message->firstEntity()->removeHeader("B"));
  EXPECT_EQ(message->toString(), "\nbody");
}

TEST(AddHeader, GoesToItsPosition) {
  auto message = mail("A: 1\nB: 2\n\nbody");
  EXPECT_TRUE(message->firstEntity()->addHeader(1, "C", "3", nullptr));
  EXPECT_TRUE(message->firstEntity()->addHeader(99, "D", "4", nullptr));
  EXPECT_EQ(message->toString(), "A: 1\nC: 3\nB: 2\nD: 4\n\nbody");
  EXPECT_FALSE(message->firstEntity()->addHeader(0, "a b", "x", nullptr));
  EXPECT_FALSE(message->firstEntity()->addHeader(0, "E", "\xFF", "utf-8"));
}

TEST(AddHeader, ToAPartWithoutHeaderOrBlankLineDividesThem) {
  auto message = mail("Content-Type: multipart/mixed; boundary=b\n\n--b\nplain words\n--b--\n");
  EXPECT_TRUE(at(*message, "1.1")->addHeader(-1, "X", "1", nullptr));
  EXPECT_EQ(message->toString(),
            "Content-Type: multipart/mixed; boundary=b\n\n--b\nX: 1\n\nplain words\n--b--\n");
}

TEST(Changes, AreListedInOrder) {
  auto message = mail(kMail);
  Entity* root = message->firstEntity();
  msgu::setHeader(root, "X-New", "1", nullptr);
  msgu::setHeader(root, "X-New", "1", nullptr);
  msgu::setHeader(root, "Subject", "z", nullptr);
  root->removeHeader("X-A");
  using Kind = host::message::Change::Kind;
  const auto changes = message->changes();
  ASSERT_EQ(changes.size(), 3u);
  EXPECT_EQ(changes[0].kind, Kind::HeaderAdded);
  EXPECT_EQ(changes[0].what, "X-New");
  EXPECT_EQ(changes[0].entityPath, "1");
  EXPECT_EQ(changes[1].kind, Kind::HeaderChanged);
  EXPECT_EQ(changes[1].what, "Subject");
  EXPECT_EQ(changes[2].kind, Kind::HeaderRemoved);
}

}  // namespace
}  // namespace message_test
