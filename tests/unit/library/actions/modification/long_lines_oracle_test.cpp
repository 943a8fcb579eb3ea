// The division of long lines against its literal steps, on random texts in every charset that ICU
// has. KAVI_LONG_LINE_ROUNDS says how many texts each charset gets.
#include "tests/unit/library/actions/modification/support/long_lines_oracle.h"

#include <unicode/ucnv.h>

#include <cstdlib>
#include <memory>

#include "library/actions/modification/long_lines.h"
#include "tests/unit/library/actions/modification/support/random_texts.h"
#include "tests/unit/library/library_test.h"

namespace {

unsigned int rounds() {
  const char* const text = std::getenv("KAVI_LONG_LINE_ROUNDS");
  return text != nullptr ? static_cast<unsigned int>(std::strtoul(text, nullptr, 10)) : 4;
}

class LongLinesOracleTest : public LibraryTest {
 protected:
  LongLinesOracleTest() { log.setLevel(1); }

  void compare(const char* charset, int limit, const std::string& text) {
    std::string divided = text;
    std::string expected = text;
    Texts expectedLog;
    const bool result = library::divideLongLines(divided, charset, limit);
    const bool expectedResult = oracle::modifyIfHasLimitLine(expected, charset, limit, expectedLog);
    EXPECT_EQ(log.takeLines(1), expectedLog);
    EXPECT_EQ(result, expectedResult);
    EXPECT_EQ(divided, expected);
    ++compared;
    dividedCount += expectedResult ? 1 : 0;
    refusedCount += !expectedResult && !expectedLog.empty() ? 1 : 0;
  }

  unsigned int compared = 0;
  unsigned int dividedCount = 0;
  unsigned int refusedCount = 0;
};

// Small limits divide often, large ones run long; both ends of the range are there.
int randomLimit(RandomTexts& texts) {
  constexpr unsigned int kBounds[] = {8, 80, 998};
  return static_cast<int>(1 + texts.below(kBounds[texts.below(3)]));
}

TEST_F(LongLinesOracleTest, GivesTheBytesAndLogLinesOfTheStepsInEveryCharset) {
  const std::int32_t charsets = ucnv_countAvailable();
  ASSERT_GT(charsets, 200);
  for (std::int32_t index = 0; index < charsets; ++index) {
    const char* const charset = ucnv_getAvailableName(index);
    RandomTexts texts(charset, static_cast<unsigned int>(index));
    for (unsigned int round = 0; round < rounds(); ++round) {
      SCOPED_TRACE(std::string(charset) + ", text " + std::to_string(round));
      const int limit = randomLimit(texts);
      std::string text = texts.make(1 + texts.below(limit < 100 ? 6 * limit + 10 : 3 * limit));
      if (texts.below(2) == 0) {
        text += "\r\n";
      }
      compare(charset, limit, text);
      ASSERT_FALSE(HasFailure());
    }
  }
  // The comparison is only worth something if texts are divided, and some found too wide.
  EXPECT_GT(dividedCount, compared / 4);
  EXPECT_GT(refusedCount, compared / 50);
  RecordProperty("compared", static_cast<int>(compared));
  RecordProperty("divided", static_cast<int>(dividedCount));
  RecordProperty("refused", static_cast<int>(refusedCount));
}

TEST_F(LongLinesOracleTest, GivesThemAtBothEndsOfTheLimits) {
  for (const char* charset : {"us-ascii", "utf-8", "iso-2022-jp", "iso-2022-kr", "hz", "utf-7",
                              "shift_jis", "gb18030", "scsu", "utf-16be", "utf-16", "ibm-939"}) {
    RandomTexts texts(charset, 1);
    for (const int limit : {1, 2, 3, 997, 998}) {
      for (int round = 0; round < 4; ++round) {
        SCOPED_TRACE(std::string(charset) + ", limit " + std::to_string(limit));
        compare(charset, limit, texts.make(limit > 3 ? 2000 : 40));
      }
    }
  }
  EXPECT_GT(dividedCount, 0u);
}

// How euc-tw substitutes the first half of a pair depends on the text's last character: the soft
// hyphen, which it has not, changes it once.
TEST_F(LongLinesOracleTest, GivesThemWhereTheLastCharacterChangesASubstitution) {
  RandomTexts texts("euc-tw-2014", 1);
  for (int round = 0; round < 400; ++round) {
    std::string text = "a";
    text.resize(texts.below(12), 'a');
    for (auto left = 2 + texts.below(12); left > 0; --left) {
      text += "\xF0\xA0\x80\x8B";  // U+2000B
    }
    text += "\xC2\xA1\xC2\xAD";
    const int limit = static_cast<int>(1 + texts.below(16));
    SCOPED_TRACE(text + ", limit " + std::to_string(limit));
    compare("euc-tw-2014", limit, text);
  }
}

}  // namespace
