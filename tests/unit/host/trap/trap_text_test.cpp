#include "host/trap/trap_text.h"

#include <gtest/gtest.h>

namespace {

using host::trap::fittingTrapText;

TEST(TrapText, StaysAsItIsWhenItFits) {
  for (const std::size_t size : {0u, 1u, 1399u, 1400u}) {
    EXPECT_EQ(fittingTrapText(std::string(size, 'x')), std::string(size, 'x'));
  }
}

TEST(TrapText, SaysThatItWasCut) {
  EXPECT_EQ(fittingTrapText(std::string(1401, 'x')), std::string(1394, 'x') + " [cut]");
  EXPECT_EQ(fittingTrapText(std::string(70000, 'x')).size(), 1400u);
}

TEST(TrapText, IsCutBetweenCharacters) {
  for (const std::string character : {"\xC3\xA9", "\xE6\x97\xA5", "\xF0\x9F\x93\xA7"}) {
    for (std::size_t shift = 0; shift < 4; ++shift) {
      std::string text(shift, 'x');
      while (text.size() < 3000) text += character;
      const std::string cut = fittingTrapText(text);
      EXPECT_LE(cut.size(), 1400u);
      EXPECT_GT(cut.size(), 1396u);
      EXPECT_TRUE(cut.ends_with(" [cut]"));
      EXPECT_EQ((cut.size() - 6 - shift) % character.size(), 0u);
    }
  }
}

TEST(TrapText, IsCutSomewhereWhereThereAreNoCharacters) {
  EXPECT_EQ(fittingTrapText(std::string(2000, '\x80')), std::string(1394, '\x80') + " [cut]");
}

}  // namespace
