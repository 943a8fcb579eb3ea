#include "library/framework/field_readers.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>

namespace {

// A text in a buffer of its own size, so that a look behind its NUL is an error under a sanitizer.
class ExactText {
 public:
  explicit ExactText(const std::string& text)
      : size_(text.size()), buffer_(new char[text.size() + 1]) {
    std::memcpy(buffer_.get(), text.c_str(), size_ + 1);
  }
  char* begin() const { return buffer_.get(); }
  std::string text() const { return std::string(buffer_.get(), size_); }

 private:
  std::size_t size_;
  std::unique_ptr<char[]> buffer_;
};

struct NumberCase {
  const char* what;
  const char* text;
  long value;
  long end;     // offset of the first character that was not converted
  long cursor;  // offset of the cursor after the call
};

TEST(GetNumericData, ReadsWhatStrtoulReadsAndSkipsOneCharacter) {
  const NumberCase kCases[] = {
      {"number and separator", "42:7", 42, 2, 3},
      {"any separator", "42x7", 42, 2, 3},
      {"two separators: one is skipped", "42::7", 42, 2, 3},
      {"number at the end of the text", "42", 42, 2, 2},
      {"separator at the end of the text", "42:", 42, 2, 3},
      {"no digits", "abc", 0, 0, 1},
      {"empty text", "", 0, 0, 0},
      {"leading blanks", " \t\n7:", 7, 4, 5},
      {"plus sign", "+7:", 7, 2, 3},
      {"minus sign wraps", "-1:", -1, 2, 3},
      {"sign alone", "-:", 0, 0, 1},
      {"leading zeros", "007:", 7, 3, 4},
      {"hexadecimal is not read", "0x10:", 0, 1, 2},
      {"largest", "18446744073709551615:", -1, 20, 21},
      {"overflow saturates", "99999999999999999999999:", -1, 23, 24},
      {"beyond 32 bits", "4294967296:", 4294967296L, 10, 11},
  };
  for (const NumberCase& test : kCases) {
    SCOPED_TRACE(test.what);
    const ExactText text(test.text);
    long value = 99;
    const char* cursor = text.begin();
    char* end = nullptr;
    EXPECT_TRUE(library::_get_numeric_data(value, cursor, end));
    EXPECT_EQ(value, test.value);
    EXPECT_EQ(end - text.begin(), test.end);
    EXPECT_EQ(cursor - text.begin(), test.cursor);
  }
}

TEST(GetNumericData, RefusesNull) {
  long value = 99;
  const char* cursor = nullptr;
  char other = 0;
  char* end = &other;
  EXPECT_FALSE(library::_get_numeric_data(value, cursor, end));
  EXPECT_EQ(end, nullptr);
  EXPECT_EQ(cursor, nullptr);
  EXPECT_EQ(value, 99);
}

TEST(GetNumericData, ReadsAWholeTextWithoutLookingBehindIt) {
  const ExactText text("1-22-333");
  const char* cursor = text.begin();
  char* end = nullptr;
  long value = 0;
  for (long expected : {1L, 22L, 333L, 0L, 0L}) {
    ASSERT_TRUE(library::_get_numeric_data(value, cursor, end));
    EXPECT_EQ(value, expected);
    EXPECT_LE(cursor, text.begin() + 8);
  }
}

struct StringCase {
  const char* what;
  std::string text;
  unsigned int remaining;
  bool result;
  const char* value;            // "old" when it must be left alone
  unsigned int remainingAfter;  // only the digits of the length count
  long cursor;                  // offset after the call
};

TEST(GetStringData, ReadsOneField) {
  const StringCase kCases[] = {
      {"plain", "3:abc:", 6, true, "abc", 5, 6},
      {"remaining just above the length", "3:abc:", 5, true, "abc", 4, 6},
      {"remaining just too small", "3:abc:", 4, false, "old", 3, 0},
      {"remaining far too small", "3:abc:", 1, false, "old", 0, 0},
      {"remaining 0 does not wrap", "3:abc:", 0, false, "old", 0, 0},
      {"more digits than remaining does not wrap", "0000:a:", 3, false, "old", 0, 0},
      {"remaining far too large", "3:abc:", UINT_MAX, true, "abc", UINT_MAX - 1, 6},
      {"closing colon not at its place", "5:ab", 100, false, "old", 99, 0},
      {"text ends where the colon should be", "2:ab", 100, false, "old", 99, 0},
      {"other closing character", "2:ab;", 100, false, "old", 99, 0},
      {"text ends behind the length", "3", 100, false, "old", 99, 0},
      {"text ends behind the separator", "3:", 100, false, "old", 99, 0},
      {"empty value", "0::", 3, true, "", 2, 3},
      {"empty value, remaining 2", "0::", 2, true, "", 1, 3},
      {"empty value, remaining 1", "0::", 1, false, "old", 0, 0},
      {"no length reads as 0", "::", 1, true, "", 1, 2},
      {"no length, no colon behind", "ab", 9, false, "old", 9, 0},
      {"any separator", "3xabc:", 6, true, "abc", 5, 6},
      {"colons in the value", "5:a:b:c:", 8, true, "a:b:c", 7, 8},
      {"text follows", "1:a:1:b:", 8, true, "a", 7, 4},
      {"leading blanks count as converted", "  1:a:", 6, true, "a", 3, 6},
      {"remaining used up by blanks", "  1:a:", 3, false, "old", 0, 0},
      {"minus is a huge length", "-1:a:", 100, false, "old", 98, 0},
      {"plus", "+1:a:", 100, true, "a", 98, 5},
      {"overflow saturates", "99999999999999999999:a:", 100, false, "old", 80, 0},
      {"beyond 32 bits is not cut", "4294967297:a:", 100, false, "old", 90, 0},
      {"a NUL ends the text", std::string("5:ab\0cd:", 8), 100, false, "old", 99, 0},
      {"bytes above 127", "2:\xC3\xA9:", 10, true, "\xC3\xA9", 9, 5},
      {"empty text", "", 10, false, "old", 10, 0},
  };
  for (const StringCase& test : kCases) {
    SCOPED_TRACE(test.what);
    const ExactText text(test.text);
    std::string value = "old";
    const char* cursor = text.begin();
    char* end = nullptr;
    unsigned int remaining = test.remaining;
    EXPECT_EQ(library::_get_string_data(value, cursor, end, remaining), test.result);
    EXPECT_EQ(value, test.value);
    EXPECT_EQ(remaining, test.remainingAfter);
    EXPECT_EQ(cursor - text.begin(), test.cursor);
    EXPECT_EQ(text.text(), test.text) << "the text is left as it was";
    if (test.result) {
      EXPECT_EQ(end, cursor - 1) << "end is left on the closing colon";
      EXPECT_EQ(*end, ':');
    }
  }
}

TEST(GetStringData, RefusesNull) {
  std::string value = "old";
  const char* cursor = nullptr;
  char* end = nullptr;
  unsigned int remaining = 10;
  EXPECT_FALSE(library::_get_string_data(value, cursor, end, remaining));
  EXPECT_EQ(value, "old");
  EXPECT_EQ(remaining, 10u);
}

TEST(GetStringData, ReadsFieldAfterFieldTakingOnlyTheDigitsOffRemaining) {
  const ExactText text("3:abc:10:0123456789:0::");
  std::string value;
  const char* cursor = text.begin();
  char* end = nullptr;
  unsigned int remaining = 23;
  ASSERT_TRUE(library::_get_string_data(value, cursor, end, remaining));
  EXPECT_EQ(value, "abc");
  EXPECT_EQ(remaining, 22u);
  ASSERT_TRUE(library::_get_string_data(value, cursor, end, remaining));
  EXPECT_EQ(value, "0123456789");
  EXPECT_EQ(remaining, 20u);
  ASSERT_TRUE(library::_get_string_data(value, cursor, end, remaining));
  EXPECT_EQ(value, "");
  EXPECT_EQ(remaining, 19u);
  EXPECT_FALSE(library::_get_string_data(value, cursor, end, remaining));
  EXPECT_EQ(remaining, 19u);
}

// What remains is more than there is by then: only the NUL stops the reader.
TEST(GetStringData, StopsAtTheNulWhenRemainingIsTooLarge) {
  const ExactText text("5:abcde:4:xyz:");
  std::string value;
  const char* cursor = text.begin();
  char* end = nullptr;
  unsigned int remaining = 14;
  ASSERT_TRUE(library::_get_string_data(value, cursor, end, remaining));
  EXPECT_FALSE(library::_get_string_data(value, cursor, end, remaining));
  EXPECT_EQ(value, "abcde");
}

}  // namespace
