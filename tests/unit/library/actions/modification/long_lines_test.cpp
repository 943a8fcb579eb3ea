#include "library/actions/modification/long_lines.h"

#include <unicode/ucnv.h>

#include "library/actions/modification/stamp.h"
#include "tests/unit/host/core/cpu_time.h"
#include "tests/unit/library/library_test.h"

namespace {

using fakes::LogLines;

std::string repeated(const std::string& text, std::size_t count) {
  std::string result;
  for (; count > 0; --count) {
    result += text;
  }
  return result;
}

const std::string kKana = "\xE3\x81\x82";       // U+3042
const std::string kHalf = "\xEF\xBF\xBD";       // what half a pair becomes
const std::string kEmoji = "\xF0\x9F\x98\x80";  // U+1F600

class LongLinesTest : public LibraryTest {
 protected:
  /// The divided text, or "as it was".
  std::string divided(const std::string& before, const char* charset, int limit) {
    std::string text = before;
    if (library::divideLongLines(text, charset, limit)) {
      return text;
    }
    EXPECT_EQ(text, before);
    return "as it was";
  }
  Texts numbers() {
    Texts numbers;
    for (const std::string& line : log.takeLines(1)) {
      const std::size_t quote = line.find('\'');
      EXPECT_EQ(line.back(), '\'') << line;
      const std::string what = line.substr(0, quote);
      EXPECT_TRUE(what == "Long line detected " || what == "Long line divided ") << line;
      numbers.push_back(line.substr(10, 3) + line.substr(quote + 1, line.size() - quote - 2));
    }
    return numbers;
  }
};

struct DivisionCase {
  const char* what;
  std::string text;
  const char* charset;
  int limit;
  std::string expected;
  Texts log;  // det: detected, div: divided
};

const std::string kA990(990, 'a');

const DivisionCase kCases[] = {
    {"2,000 bytes with a break",
     std::string(2000, 'a') + "\r\n",
     "us-ascii",
     990,
     kA990 + "\r\n" + kA990 + "\r\n" + std::string(20, 'a') + "\r\n",
     {"det2002", "div992", "div992"}},
    {"exactly the limit with a break", kA990 + "\r\n", "us-ascii", 990, "as it was", {}},
    {"one more with a break",
     kA990 + "b\r\n",
     "us-ascii",
     990,
     kA990 + "\r\nb\r\n",
     {"det993", "div992"}},
    {"last line of 991 bytes", kA990 + "b", "us-ascii", 990, "as it was", {}},
    {"last line of 992 bytes", kA990 + "bc", "us-ascii", 990, "as it was", {}},
    {"last line of 993 bytes",
     kA990 + "bcd",
     "us-ascii",
     990,
     kA990 + "\r\nbcd",
     {"det993", "div992"}},
    {"short lines around a long one",
     "a\r\nabcdef\r\nb\r\n",
     "us-ascii",
     4,
     "a\r\nabcd\r\nef\r\nb\r\n",
     {"det8", "div6"}},
    {"every long line",
     "abcde\r\nabcde\r\n",
     "us-ascii",
     4,
     "abcd\r\ne\r\nabcd\r\ne\r\n",
     {"det7", "div6", "det7", "div6"}},
    {"the CR opens a piece",
     "abcdabcd\r\n",
     "us-ascii",
     4,
     "abcd\r\nabcd\r\n\r\n",
     {"det10", "div6", "div6"}},
    {"the LF opens a piece",
     "abcabcd\r\n",
     "us-ascii",
     4,
     "abca\r\nbcd\r\r\n\n",
     {"det9", "div6", "div6"}},
    {"a CR or LF alone is no break",
     "ab\rab\nabab",
     "us-ascii",
     4,
     "ab\ra\r\nb\nab\r\nab",
     {"det10", "div6", "div6"}},
    {"a limit of 1", "abcd", "us-ascii", 1, "a\r\nb\r\nc\r\nd", {"det4", "div3", "div3", "div3"}},
    {"two-byte characters",
     "abc\r\nabc\r\n" + repeated(kKana, 5),
     "shift_jis",
     4,
     "abc\r\nabc\r\n" + kKana + kKana + "\r\n" + kKana + kKana + "\r\n" + kKana,
     {"det10", "div6", "div6"}},
    {"two-byte characters that do not fit back into UTF-8",
     repeated(kKana, 5),
     "shift_jis",
     4,
     "as it was",
     {"det10", "div6", "div6"}},
    {"characters wider than the limit, behind an empty piece",
     kKana + kKana,
     "utf-8",
     1,
     "\r\n" + kKana + "\r\n" + kKana,
     {"det6", "div2", "div5"}},
    {"escapes count",
     repeated(kKana, 6),
     "iso-2022-jp",
     10,
     repeated(kKana, 2) + "\r\n" + repeated(kKana, 2) + "\r\n" + repeated(kKana, 2),
     {"det18", "div12", "div12"}},
    {"a pair at the edge is torn",
     "a" + kEmoji + "bc",
     "utf-8",
     4,
     "a" + kHalf + "\r\n" + kHalf + "b\r\nc",
     {"det7", "div6", "div6"}},
    {"a header belongs to the break, so that none is found",
     "ab\r\ncdefghij",
     "iso-2022-kr",
     9,
     "ab\r\ncdefg\r\nhij",
     {"det16", "div15"}},
    {"NULs end the destination text", "ab\r\n" + kKana, "utf-16be", 1, "as it was", {}},
    {"empty", "", "us-ascii", 4, "as it was", {}},
    {"unknown charset", "abcdefgh", "no-such-charset", 4, "as it was", {}},
    {"no charset", "abcdefgh", nullptr, 4, "as it was", {}},
    {"a limit of 0", "abcdefgh", "us-ascii", 0, "as it was", {}},
    {"a limit below 0", "abcdefgh", "us-ascii", -3, "as it was", {}},
};

TEST_F(LongLinesTest, DividesLinesThatDoNotFit) {
  for (const DivisionCase& test : kCases) {
    SCOPED_TRACE(test.what);
    EXPECT_EQ(divided(test.text, test.charset, test.limit), test.expected);
    EXPECT_EQ(numbers(), test.log);
  }
}

TEST_F(LongLinesTest, CountsBytesOfTheDestinationCharset) {
  const std::string text = repeated("\xC3\xA9", 600) + "\r\n";  // U+00E9
  EXPECT_EQ(divided(text, "iso-8859-1", 990), "as it was");
  EXPECT_EQ(divided(text, "utf-8", 990),
            repeated("\xC3\xA9", 495) + "\r\n" + repeated("\xC3\xA9", 105) + "\r\n");
  EXPECT_EQ(numbers(), (Texts{"det1202", "div992"}));
}

// The room of the last conversion is that of the text in the charset: what takes two bytes there
// and three in UTF-8 does not fit.
TEST_F(LongLinesTest, LeavesATextThatDoesNotFitBackIntoUtf8) {
  EXPECT_EQ(divided(repeated(kKana, 665), "shift_jis", 998), "as it was");
  EXPECT_EQ(numbers(), (Texts{"det1330", "div1000"}));
}

TEST_F(LongLinesTest, CutsOutputPiecesAtTheirFirstNul) {
  // UTF-16 text without a NUL byte, whose breaks have one: each piece loses its own.
  EXPECT_EQ(divided(repeated(kKana, 5), "utf-16be", 4),
            repeated(kKana, 2) + repeated(kKana, 2) + kKana);
  EXPECT_EQ(numbers(), (Texts{"det10", "div4", "div4"}));
}

TEST_F(LongLinesTest, EncodersThatCannotBeContinuedGiveTheSame) {
  const std::string text = repeated("abc" + kKana + kKana, 300);
  for (const char* charset : {"scsu", "lmbcs", "x11-compound-text"}) {
    EXPECT_NE(divided(text, charset, 100), "as it was") << charset;
  }
  log.takeLines();
}

TEST_F(LongLinesTest, TheActionHandsOnItsLimit) {
  fakes::Settings settings;
  settings.set("MessageModule", "DisclaimerLineLimit", "4");
  ActStamp::init(settings, log);
  ActStamp action;
  std::string text = "abcdefgh";
  EXPECT_TRUE(action.modifyIfHasLimitLine(text, "us-ascii"));
  EXPECT_EQ(text, "abcd\r\nefgh");
  EXPECT_FALSE(action.modifyIfHasLimitLine(text, "us-ascii"));
  EXPECT_FALSE(action.modifyIfHasLimitLine(text, nullptr));
  EXPECT_EQ(numbers(), (Texts{"det8", "div6"}));
  settings.set("MessageModule", "DisclaimerLineLimit", "990");
  ActStamp::init(settings, log);
}

// Long texts of what is hard to measure: nothing on the line, or everything near its end.
TEST_F(LongLinesTest, TakesTimeLinearInTheText) {
  log.setLevel(0);
  const auto milliseconds = [&](std::size_t size, const char* charset, int limit,
                                const std::string& unit) {
    const std::string text = repeated(unit, size / unit.size());
    return 1000 * testing_host::leastCpuSeconds([&] { divided(text, charset, limit); });
  };
  struct {
    const char* charset;
    int limit;
    std::string unit;
  } const kTexts[] = {
      {"iso-2022-jp", 990, kKana},
      {"utf-8", 990, "a"},
      {"utf-8", 1, "a"},
      {"utf-8", 990, kEmoji},
      {"us-ascii", 3, "abc"},
      {"euc-tw-2014", 990, kKana},
      {"us-ascii", 990, "\xE2\x80\x8B"},
      {"utf-7", 990, kEmoji},
      {"scsu", 990, kKana},
      {"iso-2022-kr", 990, "\xEA\xB0\x80"},
  };
  for (const auto& text : kTexts) {
    SCOPED_TRACE(std::string(text.charset) + ", limit " + std::to_string(text.limit));
    const double small = milliseconds(100'000, text.charset, text.limit, text.unit);
    const double large = milliseconds(800'000, text.charset, text.limit, text.unit);
    // Eight times the text; quadratic would be 64 times the time. The floor is for noise.
    EXPECT_LT(large, 30 * small + 50);
  }
}

}  // namespace
