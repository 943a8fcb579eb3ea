#include "host/core/text_escape.h"

#include <gtest/gtest.h>

namespace {

using host::core::printable;
using host::core::utf8Length;

TEST(Printable, LeavesTextAlone) {
  EXPECT_EQ(printable("C:\\a 'b' \"c\" ~"), "C:\\a 'b' \"c\" ~");
  EXPECT_EQ(printable("件名 é 😀"), "件名 é 😀");
}

TEST(Printable, EscapesControls) {
  EXPECT_EQ(printable(std::string_view("a\0b\r\nc\td\x1B\x7F", 10)),
            "a\\x00b\\r\\nc\\td\\x1B\\x7F");
  EXPECT_EQ(printable("\xC2\x85|\xC2\x9B|\xC2\xA0"), "\\xC2\\x85|\\xC2\\x9B|\xC2\xA0");
}

TEST(Printable, EscapesBytesThatAreNoUtf8) {
  EXPECT_EQ(printable("\xFF\x80"), "\\xFF\\x80");
  EXPECT_EQ(printable("\xE4\xB8"), "\\xE4\\xB8");                    // cut short
  EXPECT_EQ(printable("\xC0\xAF"), "\\xC0\\xAF");                    // overlong
  EXPECT_EQ(printable("\xE0\x80\xAF"), "\\xE0\\x80\\xAF");           // overlong
  EXPECT_EQ(printable("\xED\xA0\x80"), "\\xED\\xA0\\x80");           // a surrogate
  EXPECT_EQ(printable("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80");  // beyond U+10FFFF
}

TEST(Utf8Length, KnowsTheEdges) {
  EXPECT_EQ(utf8Length(""), 0u);
  EXPECT_EQ(utf8Length(std::string_view("\0", 1)), 1u);
  EXPECT_EQ(utf8Length("\xC2\x80"), 2u);
  EXPECT_EQ(utf8Length("\xE0\xA0\x80"), 3u);
  EXPECT_EQ(utf8Length("\xF0\x90\x80\x80"), 4u);
  EXPECT_EQ(utf8Length("\xF4\x8F\xBF\xBF"), 4u);
  EXPECT_EQ(utf8Length("\xF5\x80\x80\x80"), 0u);
  EXPECT_EQ(utf8Length("\xF0\x8F\xBF\xBF"), 0u);
}

}  // namespace
