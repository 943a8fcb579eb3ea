#include "gateway/policy/suggest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace gateway::policy {
namespace {

const std::vector<std::string_view> kActions = {"delete", "postpone", "virus_clean", "x_header"};

struct Word {
  const char* typed;
  const char* remedy;
};

class Remedies : public testing::TestWithParam<Word> {};

TEST_P(Remedies, NameWhatWasMeant) {
  EXPECT_EQ(remedyFor(GetParam().typed, kActions), GetParam().remedy);
}

constexpr char kAll[] = "(known: delete, postpone, virus_clean, x_header)";

INSTANTIATE_TEST_SUITE_P(All, Remedies,
                         testing::Values(Word{"delte", "(did you mean 'delete'?)"},
                                         Word{"dleete", "(did you mean 'delete'?)"},
                                         Word{"Delete", "(did you mean 'delete'?)"},
                                         Word{"virus-clean", "(did you mean 'virus_clean'?)"},
                                         Word{"xheader", "(did you mean 'x_header'?)"},
                                         Word{"discard", "(did you mean 'delete'?)"},
                                         Word{"quack", kAll}, Word{"", kAll}));

TEST(Suggest, DoesNotMeasureVeryLongWords) {
  EXPECT_EQ(remedyFor(std::string(100000, 'd'), kActions), kAll);
}

TEST(Suggest, QuotesShortPrintableTexts) {
  EXPECT_EQ(inQuotes("a b"), "'a b'");
  EXPECT_EQ(inQuotes("a\nb\x1b"), "'a?b?'");
  EXPECT_EQ(inQuotes(std::string(50, 'x')), "'" + std::string(40, 'x') + "…'");
  // A character of two bytes across the cut goes whole.
  EXPECT_EQ(inQuotes(std::string(39, 'x') + "\xc3\xa4z"), "'" + std::string(39, 'x') + "…'");
}

}  // namespace
}  // namespace gateway::policy
