#include "gateway/policy/patterns.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace gateway::policy {
namespace {

struct Case {
  const char* pattern;
  const char* text;
  bool matches;
};

std::string caseName(const testing::TestParamInfo<Case>& info) {
  return std::to_string(info.index);
}

class Globs : public testing::TestWithParam<Case> {};

TEST_P(Globs, MatchWholeTexts) {
  EXPECT_EQ(Patterns::glob({GetParam().pattern}).matches(GetParam().text), GetParam().matches)
      << GetParam().pattern << " on " << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(
    All, Globs,
    testing::Values(Case{"*.exe", "a.exe", true}, Case{"*.exe", "A.EXE", true},
                    Case{"*.exe", "a.exe.txt", false}, Case{"*.exe", ".exe", true},
                    Case{"*.exe", "line\nbreak.exe", true}, Case{"a?c", "abc", true},
                    Case{"a?c", "ac", false},
                    Case{"a?c",
                         "a\xc3\xa4"
                         "c",
                         true},
                    Case{"a.c", "abc", false}, Case{"a+b(c)|d", "a+b(c)|d", true},
                    Case{"[ab]x", "bx", true}, Case{"[ab]x", "cx", false},
                    Case{"[!ab]x", "cx", true}, Case{"[!ab]x", "ax", false},
                    Case{"[a-c]", "b", true}, Case{"[]x]", "]", true}, Case{"[z-a]", "[z-a]", true},
                    Case{"[ab", "[ab", true}, Case{"[a^]", "^", true}, Case{"[a\\]", "\\", true},
                    Case{"**", "", true}, Case{"", "", true}, Case{"", "x", false},
                    Case{"\xe8\xa6\x8b*", "\xe8\xa6\x8b\xe7\xa9\x8d", true}),
    caseName);

struct Fault {
  const char* pattern;
  const char* begin;  ///< of what is said
};

class RegexFaults : public testing::TestWithParam<Fault> {};

TEST_P(RegexFaults, SayWhatWhereAndWhatToWrite) {
  const std::string fault = Patterns::regexFault(GetParam().pattern);
  EXPECT_EQ(fault.substr(0, fault.find(" (")), GetParam().begin);
  EXPECT_TRUE(fault.ends_with(')')) << fault;
}

INSTANTIATE_TEST_SUITE_P(
    All, RegexFaults,
    testing::Values(Fault{"a(b", "a \"(\" that is never closed at character 2"},
                    Fault{"(\\([(])(\xc3\xa4", "a \"(\" that is never closed at character 8"},
                    Fault{"a\\))", "a \")\" that closes nothing at character 4"},
                    Fault{"\\[x[a-", "a \"[\" that is never closed at character 4"},
                    Fault{"x[z-a]", "no set of characters at character 3, 'z-a'"},
                    Fault{"\\p{Foo}", "no set of characters at character 1, '\\p{Foo}'"},
                    Fault{"a\\q", "an escape that means nothing at character 2, '\\q'"},
                    Fault{"ab\\", "a backslash with nothing behind it at character 3"},
                    Fault{"+a", "nothing to repeat at character 1, '+'"},
                    Fault{"a**", "a repetition of a repetition at character 2, '**'"},
                    Fault{"a{2000}",
                          "a repetition that is too large or the wrong way round at character 2, "
                          "'{2000}'"},
                    Fault{"a(?=b)", "a group that is not known at character 2, '(?='"},
                    Fault{"(?P<n", "a group without a proper name at character 1, '(?P<n'"},
                    Fault{"\xff", "bytes that are no UTF-8"}),
    [](const auto& test) { return std::to_string(test.index); });

class Regexes : public testing::TestWithParam<Case> {};

TEST_P(Regexes, AreFoundAnywhere) {
  EXPECT_EQ(Patterns::regex({GetParam().pattern}).matches(GetParam().text), GetParam().matches);
}

INSTANTIATE_TEST_SUITE_P(All, Regexes,
                         testing::Values(Case{"^yes", "YES, score=9", true},
                                         Case{"(?-i)^yes", "YES", false}, Case{"b", "abc", true},
                                         Case{"^b", "abc", false}, Case{"^$", "", true},
                                         Case{"^$", "x", false},
                                         Case{"\xe8\xa6\x8b", "x\xe8\xa6\x8bx", true}),
                         caseName);

TEST(Patterns, OneOfManyIsEnough) {
  std::vector<std::string> globs;
  for (int i = 0; i < 1000; ++i) globs.push_back("*.x" + std::to_string(i));
  const Patterns patterns = Patterns::glob(globs);
  EXPECT_TRUE(patterns.matches("a.x0"));
  EXPECT_TRUE(patterns.matches("a.x999"));
  EXPECT_FALSE(patterns.matches("a.x1000"));
}

TEST(Patterns, SaysWhatIsWrongWithARegex) {
  EXPECT_EQ(Patterns::regexFault("a(b"),
            "a \"(\" that is never closed at character 2 (close it, or write \\( for the character "
            "itself)");
  EXPECT_EQ(Patterns::regexFault("a(b)"), "");
}

TEST(Patterns, ManyStarsStayLinear) {
  std::string glob;
  for (int i = 0; i < 50; ++i) glob += "a*";
  const Patterns patterns = Patterns::glob({glob + "b"});
  const auto started = std::chrono::steady_clock::now();
  EXPECT_FALSE(patterns.matches(std::string(200000, 'a')));
  // Backtracking would not end in a lifetime.
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(20));
}

}  // namespace
}  // namespace gateway::policy
