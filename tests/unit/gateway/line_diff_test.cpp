#include "gateway/cli/line_diff.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace gateway::cli {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

/// "a|b" as lines.
Lines linesOf(const std::string& text) {
  Lines lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line, '|');) lines.push_back(line);
  return lines;
}

std::string diff(const Lines& before, const Lines& after, const DiffLimits& limits = {}) {
  std::string text;
  for (const DiffLine& line : diffLines(before, after, limits)) {
    text += (text.empty() ? "" : "|") + std::string(1, line.mark) + line.text;
  }
  return text;
}

struct Case {
  const char* before;
  const char* after;
  const char* difference;
};

class LineDiff : public testing::TestWithParam<Case> {};

TEST_P(LineDiff, ShowsWhatWentAndWhatCame) {
  EXPECT_EQ(diff(linesOf(GetParam().before), linesOf(GetParam().after)), GetParam().difference);
}

INSTANTIATE_TEST_SUITE_P(
    All, LineDiff,
    testing::Values(Case{"", "", ""}, Case{"a|b", "a|b", ""}, Case{"", "a", "+a"},
                    Case{"a", "", "-a"}, Case{"a", "b", "-a|+b"}, Case{"a|b|c", "a|c", " a|-b| c"},
                    Case{"a|c", "a|b|c", " a|+b| c"}, Case{"a|b", "x|a|b", "+x| a| b"},
                    Case{"1|2|3|4|5|a", "1|2|3|4|5|b", ".2 lines as before| 3| 4| 5|-a|+b"},
                    Case{"a|1|2|3|4", "b|1|2|3|4", "-a|+b| 1| 2| 3|.1 line as before"},
                    Case{"a|b|c|d", "w|x|c|y|z", "-a|-b|+w|+x| c|-d|+y|+z"},
                    Case{"a|a|b", "a|b|b", " a|-a|+b| b"},
                    Case{"x\x1b[2J", "y\a", "-x\\x1B[2J|+y\\x07"}));

/// What a difference without limits says of both texts.
void expectWhole(const Lines& before, const Lines& after) {
  constexpr std::size_t kAll = 100'000;
  Lines left;
  Lines right;
  for (const DiffLine& line : diffLines(before, after, {kAll, kAll, kAll, kAll})) {
    if (line.mark != '+') left.push_back(line.text);
    if (line.mark != '-') right.push_back(line.text);
  }
  if (before == after) return;
  EXPECT_EQ(left, before);
  EXPECT_EQ(right, after);
}

TEST(LineDiff, LosesNoLine) {
  std::mt19937 random(5);
  for (int round = 0; round < 500; ++round) {
    Lines before(random() % 30);
    for (std::string& line : before) line = std::to_string(random() % 8);
    Lines after = before;
    for (std::size_t edits = random() % 6; edits > 0; --edits) {
      const std::size_t at = random() % (after.size() + 1);
      if (random() % 2 == 0 || at == after.size()) {
        after.insert(after.begin() + static_cast<std::ptrdiff_t>(at), std::to_string(random() % 8));
      } else {
        after.erase(after.begin() + static_cast<std::ptrdiff_t>(at));
      }
    }
    expectWhole(before, after);
  }
}

TEST(LineDiff, TakesLargeTextsThatHaveNothingInCommon) {
  Lines before;
  Lines after;
  for (int i = 0; i < 15'000; ++i) {
    before.push_back("b" + std::to_string(i % 977));
    after.push_back("a" + std::to_string(i % 977));
  }
  const std::vector<DiffLine> lines = diffLines(before, after);
  ASSERT_EQ(lines.size(), 401u);
  EXPECT_EQ(lines.back().text, "29,600 more lines");
}

TEST(LineDiff, ComparesTextsBeyondTheLimitAsAWhole) {
  EXPECT_EQ(diff(linesOf("a|b|c|d|e"), linesOf("a|x|c|y|e"), {.comparedLines = 2}),
            " a|-b|-c|-d|+x|+c|+y| e");
}

TEST(LineDiff, ShowsWhereLongLinesDiffer) {
  const std::string start(1000, 's');
  const std::string end(1000, 'e');
  const std::string context(60, 's');
  EXPECT_EQ(diff({start + "old" + end}, {start + "newer" + end}, {.shownBytes = 70}),
            "-…" + context + "old" + std::string(7, 'e') + "…|+…" + context + "newer" +
                std::string(5, 'e') + "…");
  EXPECT_EQ(diff({}, {start}, {.shownBytes = 5}), "+sssss…");
}

TEST(LineDiff, CutsBetweenCharacters) {
  EXPECT_EQ(diff({}, {"\xC3\xA4\xC3\xA4\xC3\xA4"}, {.shownBytes = 3}), "+\xC3\xA4…");
  EXPECT_THAT(diffLines({"a"}, {"a"}), IsEmpty());
}

}  // namespace
}  // namespace gateway::cli
