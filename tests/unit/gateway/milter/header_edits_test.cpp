#include "gateway/milter/header_edits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <vector>

#include "host/message/ascii.h"
#include "tests/unit/gateway/milter/mail_system.h"

namespace gateway::milter {

void PrintTo(const HeaderEdit& edit, std::ostream* out) {
  *out << static_cast<int>(edit.kind) << " " << edit.name << "[" << edit.index << "]" << edit.value;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Kind = HeaderEdit::Kind;
using Lines = std::vector<HeaderLine>;

Lines applied(const Lines& before, const std::vector<HeaderEdit>& edits) {
  MailSystem system(before);
  system.apply(edits);
  return system.header();
}

TEST(SplitHeaderTest, KeepsLeadingBlanksAndFolds) {
  const auto lines = splitHeader("A: one\r\nb:two\r\n\tmore \r\nC:\r\nD:   x:y\n");
  ASSERT_TRUE(lines);
  EXPECT_EQ(*lines, (Lines{{"A", " one"}, {"b", "two\n\tmore "}, {"C", ""}, {"D", "   x:y"}}));
}

TEST(SplitHeaderTest, KeepsACarriageReturnThatEndsNoLine) {
  const auto lines = splitHeader("A: x\ry\r\r\n");
  ASSERT_TRUE(lines);
  EXPECT_EQ(*lines, (Lines{{"A", " x\ry\r"}}));
}

TEST(SplitHeaderTest, RefusesALineThatIsNoField) {
  for (const char* header : {"A: x\r\nno field\r\n", " folded\r\n", ":x\r\n", "a b: c\r\n"}) {
    EXPECT_FALSE(splitHeader(header)) << header;
  }
  EXPECT_THAT(splitHeader("").value(), IsEmpty());
}

const Lines kHeader = {
    {"Received", " a"}, {"Subject", " s"}, {"X-A", " 1"}, {"x-a", " 2"}, {"X-A", " 3"}};

TEST(HeaderEditsTest, SaysNothingOfWhatStayed) {
  EXPECT_THAT(headerEdits(kHeader, kHeader), IsEmpty());
  EXPECT_THAT(headerEdits({}, {}), IsEmpty());
}

TEST(HeaderEditsTest, ChangesTheFieldInItsPlaceAmongThoseOfItsName) {
  Lines after = kHeader;
  after[3].value = " two";
  EXPECT_THAT(headerEdits(kHeader, after), ElementsAre(HeaderEdit{Kind::Change, "x-a", 2, " two"}));
}

TEST(HeaderEditsTest, DeletesFromTheBottomUp) {
  const Lines after = {kHeader[0], kHeader[1], kHeader[3]};
  EXPECT_THAT(headerEdits(kHeader, after), ElementsAre(HeaderEdit{Kind::Delete, "X-A", 3, ""},
                                                       HeaderEdit{Kind::Delete, "X-A", 1, ""}));
}

TEST(HeaderEditsTest, InsertsBehindTheHiddenTraceField) {
  Lines after = kHeader;
  after.insert(after.begin(), {"X-First", " f"});
  after.push_back({"X-Last", " l"});
  EXPECT_THAT(headerEdits(kHeader, after),
              ElementsAre(HeaderEdit{Kind::Insert, "X-First", 1, " f"},
                          HeaderEdit{Kind::Insert, "X-Last", 7, " l"}));
}

TEST(HeaderEditsTest, ChangesComeFirstThenDeletionsThenInsertions) {
  const Lines after = {kHeader[0], {"X-New", " n"}, {"Subject", " t"}, kHeader[2], kHeader[4]};
  EXPECT_THAT(headerEdits(kHeader, after), ElementsAre(HeaderEdit{Kind::Change, "Subject", 1, " t"},
                                                       HeaderEdit{Kind::Delete, "x-a", 2, ""},
                                                       HeaderEdit{Kind::Insert, "X-New", 2, " n"}));
}

TEST(HeaderEditsTest, NeverChangesAValueToAnEmptyOne) {
  const Lines before = {{"A", " 1"}, {"B", " 2"}};
  const Lines after = {{"A", ""}, {"B", " 2"}};
  const auto edits = headerEdits(before, after);
  EXPECT_THAT(edits, ElementsAre(HeaderEdit{Kind::Delete, "A", 1, ""},
                                 HeaderEdit{Kind::Insert, "A", 1, ""}));
  EXPECT_EQ(applied(before, edits), after);
}

TEST(HeaderEditsTest, ManyDifferencesReplaceWhatLiesBetween) {
  Lines before;
  Lines after;
  for (int i = 0; i < 700; ++i) {
    before.push_back({"A" + std::to_string(i), " x"});
    after.push_back({"B" + std::to_string(i), " y"});
  }
  const auto edits = headerEdits(before, after);
  EXPECT_THAT(edits, SizeIs(1400));
  EXPECT_EQ(applied(before, edits), after);
}

/// The least number of operations, by the plain table.
std::size_t leastEdits(const Lines& before, const Lines& after) {
  std::vector<std::vector<std::size_t>> table(before.size() + 1,
                                              std::vector<std::size_t>(after.size() + 1));
  for (std::size_t i = 0; i <= before.size(); ++i) {
    for (std::size_t j = 0; j <= after.size(); ++j) {
      std::size_t best = i == 0 && j == 0 ? 0 : i + j;
      if (i > 0) best = std::min(best, table[i - 1][j] + 1);
      if (j > 0) best = std::min(best, table[i][j - 1] + 1);
      if (i > 0 && j > 0) {
        const HeaderLine& old = before[i - 1];
        const HeaderLine& now = after[j - 1];
        if (old == now) best = std::min(best, table[i - 1][j - 1]);
        if (host::message::equalsIgnoreCase(old.name, now.name) && !now.value.empty()) {
          best = std::min(best, table[i - 1][j - 1] + 1);
        }
      }
      table[i][j] = best;
    }
  }
  return table[before.size()][after.size()];
}

class RandomHeaders {
 public:
  explicit RandomHeaders(unsigned int seed) : random_(seed) {}

  HeaderLine line() {
    static constexpr std::array<const char*, 5> kNames = {"A", "a", "B", "Subject", "X-Long"};
    static constexpr std::array<const char*, 5> kValues = {"", " 1", " 2", " 1\n\t2", "x"};
    return {kNames[below(kNames.size())], kValues[below(kValues.size())]};
  }
  Lines header() {
    Lines lines(below(9));
    std::generate(lines.begin(), lines.end(), [this] { return line(); });
    return lines;
  }
  Lines edited(Lines lines) {
    for (std::size_t edits = below(5); edits > 0; --edits) {
      const std::size_t place = below(lines.size() + 1);
      const auto at = lines.begin() + static_cast<std::ptrdiff_t>(place);
      const std::size_t what = place == lines.size() ? 0 : below(3);
      if (what == 0) lines.insert(at, line());
      if (what == 1) lines.erase(at);
      if (what == 2) *at = line();
    }
    return lines;
  }

 private:
  std::size_t below(std::size_t bound) { return random_() % bound; }
  std::mt19937 random_;
};

TEST(HeaderEditsTest, AnyHeaderBecomesAnyOtherWithTheFewestOperations) {
  for (unsigned int seed = 0; seed < 20'000; ++seed) {
    RandomHeaders random(seed);
    const Lines before = random.header();
    const Lines after = seed % 2 == 0 ? random.edited(before) : random.header();
    const auto edits = headerEdits(before, after);
    ASSERT_EQ(applied(before, edits), after) << "seed " << seed;
    ASSERT_EQ(edits.size(), leastEdits(before, after)) << "seed " << seed;
    ASSERT_TRUE(std::is_sorted(edits.begin(), edits.end(),
                               [](const auto& a, const auto& b) { return a.kind < b.kind; }))
        << "seed " << seed;
  }
}

}  // namespace
}  // namespace gateway::milter
