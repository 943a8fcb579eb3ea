#include "gateway/policy/yaml_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

#include "gateway/policy/diagnostics.h"
#include "gateway/policy/yaml_reader.h"

namespace gateway::policy {
namespace {

/// A tree as one line: what two trees have in common when they are the same.
std::string shapeOf(const Node& node) {
  switch (node.kind) {
    case Node::Kind::Null:
      return "null";
    case Node::Kind::Scalar:
      return "'" + node.text + "'";
    case Node::Kind::Binary:
      return "b'" + node.text + "'";
    case Node::Kind::List: {
      std::string shape = "[";
      for (const Node* item : node.items) shape += shapeOf(*item) + ",";
      return shape + "]";
    }
    case Node::Kind::Map:
      break;
  }
  std::string shape = "{";
  for (const Node::Member& member : node.members) {
    shape += member.key + ":" + shapeOf(*member.value) + ",";
  }
  return shape + "}";
}

std::string readShape(const std::string& yaml) {
  Diagnostics diagnostics("written");
  const std::unique_ptr<Document> document = readYaml(yaml, diagnostics);
  if (document == nullptr || diagnostics.hasErrors()) {
    return diagnostics.text(diagnostics.all().front());
  }
  return shapeOf(*document->root());
}

/// How a text is written behind a key.
std::string written(const std::string& text) {
  Document document;
  Node& map = document.add(Node::Kind::Map, 0);
  document.addMember(map, "k", text);
  const std::string yaml = writeYaml(map);
  EXPECT_EQ(readShape(yaml), shapeOf(map)) << yaml;
  return yaml;
}

TEST(YamlWriter, WritesWordsPlainAndTheRestInQuotes) {
  EXPECT_EQ(written("virus"), "k: virus\n");
  EXPECT_EQ(written("7"), "k: 7\n");
  EXPECT_EQ(written("Rule 7, matched (twice)"), "k: Rule 7, matched (twice)\n");
  EXPECT_EQ(written(""), "k: \"\"\n");
  EXPECT_EQ(written("null"), "k: \"null\"\n");
  EXPECT_EQ(written("~"), "k: \"~\"\n");
  EXPECT_EQ(written(" leading"), "k: \" leading\"\n");
  EXPECT_EQ(written("trailing "), "k: \"trailing \"\n");
  EXPECT_EQ(written("- item"), "k: \"- item\"\n");
  EXPECT_EQ(written("---"), "k: \"---\"\n");
  EXPECT_EQ(written("a: b"), "k: \"a: b\"\n");
  EXPECT_EQ(written("# none"), "k: \"# none\"\n");
  EXPECT_EQ(written("say \"no\" \\ 'yes'"), "k: \"say \\\"no\\\" \\\\ 'yes'\"\n");
  EXPECT_EQ(written("*anchor"), "k: \"*anchor\"\n");
  EXPECT_EQ(written("Grüße 📨"), "k: \"Grüße 📨\"\n");
}

TEST(YamlWriter, EscapesWhatReadersChange) {
  EXPECT_EQ(written(std::string("a\0\x03\x1B\x7F", 5)), "k: \"a\\x00\\x03\\x1B\\x7F\"\n");
  EXPECT_EQ(written("\t\r"), "k: \"\\t\\r\"\n");
  EXPECT_EQ(written("\xC2\x85"), "k: \"\\x85\"\n");
  EXPECT_EQ(written("\xE2\x80\xA8"), "k: \"\\u2028\"\n");
  EXPECT_EQ(written("\xEF\xBB\xBF"), "k: \"\\uFEFF\"\n");
  EXPECT_EQ(written("\xF0\x9F\xBF\xBE"), "k: \"\\U0001FFFE\"\n");
  EXPECT_EQ(written("v\xFF"), "k: !!binary \"dv8=\"\n");
  EXPECT_EQ(written("\xED\xA0\x80"), "k: !!binary \"7aCA\"\n");
}

TEST(YamlWriter, WritesLinesAsABlock) {
  EXPECT_EQ(written("a: b\n# c"), "k: |-\n  a: b\n  # c\n");
  EXPECT_EQ(written("a\n"), "k: |\n  a\n");
  EXPECT_EQ(written("a\n\n  b\n"), "k: |\n  a\n\n    b\n");
  EXPECT_EQ(written("a\n\n"), "k: |+\n  a\n\n");
  EXPECT_EQ(written("---\n...\n"), "k: |\n  ---\n  ...\n");
  EXPECT_EQ(written("Grüße\n📨"), "k: |-\n  Grüße\n  📨\n");
}

TEST(YamlWriter, WritesNoBlockThatWouldChange) {
  EXPECT_EQ(written("\n"), "k: \"\\n\"\n");
  EXPECT_EQ(written("\na"), "k: \"\\na\"\n");
  EXPECT_EQ(written(" a\nb"), "k: \" a\\nb\"\n");
  EXPECT_EQ(written("a \nb"), "k: \"a \\nb\"\n");
  EXPECT_EQ(written("a\n  \nb"), "k: \"a\\n  \\nb\"\n");
  EXPECT_EQ(written("a\r\nb"), "k: \"a\\r\\nb\"\n");
  EXPECT_EQ(written("a\n\tb"), "k: \"a\\n\\tb\"\n");
}

TEST(YamlWriter, NestsListsAndMaps) {
  Diagnostics diagnostics("in");
  const std::string text =
      "rules:\n"
      "  - id: 1\n"
      "    when:\n"
      "      all:\n"
      "        - size:\n"
      "            over: 1\n"
      "        - not: always\n"
      "    actions:\n"
      "      - delete\n"
      "      - notify:\n"
      "          - a\n"
      "          - b\n"
      "  - - x\n"
      "    - y: []\n"
      "      z: {}\n"
      "      n: null\n";
  const auto document = readYaml(text, diagnostics);
  ASSERT_NE(document, nullptr);
  EXPECT_EQ(writeYaml(*document->root()), text);
}

TEST(YamlWriter, WritesAnyTextSoThatItComesBack) {
  std::mt19937 random(7);  // NOLINT(cert-msc51-cpp): the same cases every time
  const std::string pieces[] = {"a",  "b", " ",  "  ", "\n", "\n\n", "\t",   "\r",  "-",
                                "- ", ":", ": ", "#",  " #", "\"",   "'",    "\\",  "[",
                                "{",  "|", ">",  "%",  "@",  "`",    "&x",   "*x",  "!",
                                "é",  "📨", "?",  ",",  "~",  "null", "\x01", "---", "\xEF\xBB\xBF"};
  for (int round = 0; round < 20'000; ++round) {
    std::string text;
    const std::size_t length = random() % 8;
    for (std::size_t i = 0; i < length; ++i) text += pieces[random() % std::size(pieces)];
    Document document;
    Node& list = document.add(Node::Kind::List, 0);
    Node& map = document.add(Node::Kind::Map, 0);
    list.items = {&document.addValue(text), &map, &document.addValue(text)};
    document.addMember(map, "k", text);
    document.addMember(map, "last", "x");
    ASSERT_EQ(readShape(writeYaml(list)), shapeOf(list)) << writeYaml(list);
  }
}

}  // namespace
}  // namespace gateway::policy
