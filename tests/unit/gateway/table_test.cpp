#include "gateway/cli/table.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace gateway::cli;

TEST(Table, AlignsItsColumnsAndEndsNoLineWithBlanks) {
  Table table({"ID", "NAME", ""});
  EXPECT_TRUE(table.isEmpty());
  table.add({"7", "Grüße", "x"});
  table.add({"1234", "a"});
  EXPECT_FALSE(table.isEmpty());
  EXPECT_EQ(table.text(),
            "ID    NAME\n"
            "7     Grüße  x\n"
            "1234  a\n");
}

TEST(Table, ShowsAnyBytesOnOneLine) {
  Table table({"NAME"});
  table.add({std::string("a\nb\x1b[31m\0\xFF", 10)});
  EXPECT_EQ(table.text(), "NAME\na\\nb\\x1B[31m\\x00\\xFF\n");
}

TEST(Table, CutsLongCells) {
  Table table({"NAME", "X"});
  table.add({std::string(1'000'000, 'a'), "x"});
  EXPECT_EQ(table.text(), "NAME" + std::string(59, ' ') + "X\n" + std::string(60, 'a') + "…  x\n");
}

TEST(Shortened, NeverCutsACharacter) {
  EXPECT_EQ(shortened("äöü", 2), "äö…");
  EXPECT_EQ(shortened("äöü", 3), "äöü");
  EXPECT_EQ(shortened("", 3), "");
  std::string emoji;
  for (int i = 0; i < 100; ++i) emoji += "\xF0\x9F\x98\x80";
  EXPECT_EQ(shortened(emoji, 60), emoji.substr(0, 240) + "…");
}

TEST(NameText, SaysNamesOfAnyBytes) { EXPECT_EQ(nameText("a'\x01"), "'a'\\x01'"); }

}  // namespace
