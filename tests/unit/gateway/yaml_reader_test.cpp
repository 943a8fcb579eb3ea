#include "gateway/policy/yaml_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/unit/gateway/policy_texts.h"

namespace gateway::policy {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

struct Reading {
  std::unique_ptr<Document> document;
  std::vector<std::string> faults;
};

Reading read(std::string_view text, const YamlLimits& limits = {}) {
  Diagnostics diagnostics("p");
  Reading reading;
  reading.document = readYaml(text, diagnostics, limits);
  reading.faults = textsOf(diagnostics);
  return reading;
}

TEST(YamlReader, KeepsLinesOfKeysAndValues) {
  const Reading reading = read("# comment\na: 1\nb:\n  - x\n  - {c: y}\n");
  ASSERT_THAT(reading.faults, IsEmpty());
  const Node* root = reading.document->root();
  ASSERT_EQ(root->kind, Node::Kind::Map);
  EXPECT_EQ(root->line, 2);
  ASSERT_EQ(root->members.size(), 2u);
  EXPECT_EQ(root->members[1].line, 3);
  const Node* list = root->find("b");
  ASSERT_EQ(list->items.size(), 2u);
  EXPECT_EQ(list->items[0]->line, 4);
  EXPECT_EQ(list->items[0]->text, "x");
  EXPECT_EQ(list->items[1]->find("c")->text, "y");
  EXPECT_EQ(list->items[1]->line, 5);
}

TEST(YamlReader, RefusesBracketsThatTheParserWouldHoldInMemory) {
  // Nothing is known of an opening bracket before its closing one is seen.
  for (const char* piece : {"[", "[a,", "[\n", "[]", "*a ", "&a ", "!t ", "'a'", "{a: "}) {
    std::string text = "a: [";
    while (text.size() < 100'000) text += piece;
    YamlLimits limits;
    limits.signs = 1000;
    const Reading reading = read(text, limits);
    EXPECT_EQ(reading.document, nullptr) << piece;
    EXPECT_THAT(reading.faults,
                ElementsAre(::testing::ContainsRegex("more than 1000 signs|64 levels")))
        << piece;
  }
}

TEST(YamlReader, TakesManySignsAsLongAsTheyMakeValues) {
  std::string text = "a:\n";
  for (int i = 0; i < 5000; ++i) text += "- '::::'\n";
  YamlLimits limits;
  limits.signs = 6000;
  EXPECT_THAT(read(text, limits).faults, IsEmpty());
}

TEST(YamlReader, EmptyTextHasNoRoot) {
  const Reading reading = read("# nothing\n");
  EXPECT_THAT(reading.faults, IsEmpty());
  ASSERT_NE(reading.document, nullptr);
  EXPECT_EQ(reading.document->root(), nullptr);
}

TEST(YamlReader, NamesLineAndRemedyOfASyntaxError) {
  EXPECT_THAT(read("a: 1\nb: [1, 2\nc: 3\n").faults,
              ElementsAre("p:3: not YAML: end of sequence flow not found (close each bracket that "
                          "is opened, and none else)"));
  EXPECT_THAT(read("a: 1\n\tb: 2\n").faults, ElementsAre(StartsWith("p:2: not YAML: ")));
  EXPECT_THAT(read("a: 1\nb: [*.exe]\n").faults,
              ElementsAre("p:2: not YAML: the referenced anchor is not defined (put a text that "
                          "begins with '*' or '&' in quotes)"));
  EXPECT_THAT(read("a: \"\\d\"\n").faults,
              ElementsAre("p:1: not YAML: unknown escape character: d (double the backslash, or "
                          "put the text in single quotes)"));
  EXPECT_THAT(read("a: X-Flag: yes\n").faults,
              ElementsAre("p:1: not YAML: illegal map value (put a text with ': ' in quotes, and "
                          "check the indentation)"));
}

TEST(YamlReader, ReportsKeysThatStandTwice) {
  EXPECT_THAT(read("a: 1\nb: 2\na: 3\n").faults,
              ElementsAre("p:3: key 'a' stands twice (first on line 1); remove one"));
}

struct Refusal {
  const char* text;
  const char* fault;
};

class YamlRefusals : public testing::TestWithParam<Refusal> {};

TEST_P(YamlRefusals, AreReported) {
  const Reading reading = read(GetParam().text);
  EXPECT_EQ(reading.document, nullptr);
  EXPECT_THAT(reading.faults, ElementsAre(GetParam().fault));
}

INSTANTIATE_TEST_SUITE_P(
    All, YamlRefusals,
    testing::Values(
        Refusal{"a: !!float 1\n",
                "p:1: YAML tag 'tag:yaml.org,2002:float' (remove it: values need no tags)"},
        Refusal{"a: !!binary abc\n", "p:1: what stands behind !!binary is no base64"},
        Refusal{"a: 1\n---\nb: 2\n",
                "p:3: a second YAML document (a policy is one document: remove the '---')"},
        Refusal{"a: 1\nb: \x01\n", "p:2: control byte 1 (remove it)"},
        Refusal{"a: 1\nb: \xff\n", "p:2: a byte that is not UTF-8 (save the file as UTF-8)"},
        Refusal{"a: \x04 b\n", "p:1: control byte 4 (remove it)"},
        Refusal{"? [x, y]\n: 1\n", "p:1: a key must be a plain word"},
        Refusal{"a: &x [1, *x]\n", "p:1: an alias that stands inside what it names"}));

TEST(YamlReader, RefusesATextBeyondTheByteLimit) {
  EXPECT_THAT(read("a: 12345678\n", {.bytes = 5}).faults,
              ElementsAre("p: larger than 5 bytes (split the file)"));
}

TEST(YamlReader, RefusesDeepNesting) {
  const std::string text = "a: " + std::string(100, '[') + std::string(100, ']') + "\n";
  EXPECT_THAT(read(text).faults,
              ElementsAre("p:1: nested more than 64 levels deep (write it flatter)"));
  // Far beyond what the parser itself takes.
  EXPECT_EQ(read(std::string(100000, '[')).document, nullptr);
  std::string blocks;
  for (int i = 0; i < 5000; ++i) blocks += "- ";
  EXPECT_EQ(read(blocks).document, nullptr);
}

TEST(YamlReader, SharesWhatAnAliasNames) {
  const Reading reading = read("a: &x [1, 2]\nb: *x\n");
  ASSERT_THAT(reading.faults, IsEmpty());
  EXPECT_EQ(reading.document->root()->find("a"), reading.document->root()->find("b"));
}

TEST(YamlReader, CountsAliasesInFull) {
  std::string bomb = "a0: &a0 [x, x, x, x, x, x, x, x, x, x]\n";
  for (int i = 1; i < 10; ++i) {
    const std::string last = "*a" + std::to_string(i - 1);
    bomb += "a" + std::to_string(i) + ": &a" + std::to_string(i) + " [" + last;
    for (int j = 1; j < 10; ++j) bomb += ", " + last;
    bomb += "]\n";
  }
  const Reading reading = read(bomb);
  EXPECT_EQ(reading.document, nullptr);
  EXPECT_THAT(reading.faults, ElementsAre(HasSubstr("more than 3000000 values")));
}

TEST(JsonReader, GivesTheSameTree) {
  std::string error;
  const auto document = readJson(R"({"a":["x\n\u00e4",1,true,null]})", error);
  ASSERT_NE(document, nullptr) << error;
  const Node* list = document->root()->find("a");
  ASSERT_EQ(list->items.size(), 4u);
  EXPECT_EQ(list->items[0]->text, "x\n\xc3\xa4");
  EXPECT_EQ(list->items[1]->text, "1");
  EXPECT_EQ(list->items[2]->text, "true");
  EXPECT_EQ(list->items[3]->kind, Node::Kind::Null);
  EXPECT_EQ(list->line, 0);
}

TEST(JsonReader, RefusesWhatIsNoJsonOrTooDeep) {
  std::string error;
  EXPECT_EQ(readJson("{\"a\":", error), nullptr);
  EXPECT_THAT(error, StartsWith("not JSON"));
  EXPECT_EQ(readJson("", error), nullptr);
  EXPECT_EQ(readJson(std::string(100000, '['), error), nullptr);
  EXPECT_THAT(error, HasSubstr("levels deep"));
}

}  // namespace
}  // namespace gateway::policy
