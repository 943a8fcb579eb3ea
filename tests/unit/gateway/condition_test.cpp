#include "gateway/policy/condition.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gateway/policy/yaml_reader.h"
#include "tests/unit/gateway/policy_texts.h"

namespace gateway::policy {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The canonical text of a condition as written in a policy; its faults, "line: text", else.
std::string canonical(const std::string& yaml) {
  Diagnostics diagnostics("p");
  const auto document = readYaml(yaml, diagnostics);
  if (document == nullptr) return "no YAML";
  std::string faults;
  const auto condition =
      parseCondition(*document->root(), [&faults](int line, const std::string& text) {
        faults += (faults.empty() ? "" : "\n") + std::to_string(line) + ": " + text;
      });
  EXPECT_EQ(condition.has_value(), faults.empty());
  return condition ? canonicalText(*condition) : faults;
}

struct Form {
  const char* written;
  const char* stored;
};

class ConditionForms : public testing::TestWithParam<Form> {};

TEST_P(ConditionForms, HaveOneStoredText) {
  EXPECT_EQ(canonical(GetParam().written), GetParam().stored);
}

TEST_P(ConditionForms, AreReadBackAsTheyWereStored) {
  std::vector<std::string> faults;
  const auto condition = parseCanonicalText(
      GetParam().stored, [&faults](int, std::string text) { faults.push_back(std::move(text)); });
  ASSERT_THAT(faults, IsEmpty());
  ASSERT_TRUE(condition.has_value());
  EXPECT_EQ(canonicalText(*condition), GetParam().stored);
}

INSTANTIATE_TEST_SUITE_P(
    All, ConditionForms,
    testing::Values(
        Form{"always", R"("always")"},
        Form{"{header: {matches: '^yes', name: X-Spam-Flag}}",
             R"({"header":{"name":"X-Spam-Flag","matches":["^yes"]}})"},
        Form{"header: {name: List-Id}", R"({"header":{"name":"List-Id"}})"},
        Form{"subject: {matches: [a, b]}", R"({"subject":{"matches":["a","b"]}})"},
        Form{"subject: invoice", R"({"subject":{"matches":["invoice"]}})"},
        Form{"sender: {matches: '^$'}", R"({"sender":{"matches":["^$"]}})"},
        Form{"recipient: {matches: '\"q\" \\\\'}", R"({"recipient":{"matches":["\"q\" \\\\"]}})"},
        Form{"size: {over: 10MB}", R"({"size":{"over":10485760}})"},
        Form{"size: {under: 1 kB, over: 7}", R"({"size":{"over":7,"under":1024}})"},
        Form{"size: {over: 3G}", R"({"size":{"over":3221225472}})"},
        Form{"attachment_name: ['*.exe', \"見*\"]", "{\"attachment_name\":[\"*.exe\",\"見*\"]}"},
        Form{"attachment_type: image/*", R"({"attachment_type":["image/*"]})"},
        Form{"all: [always, {not: always}]", R"({"all":["always",{"not":"always"}]})"},
        Form{"any:\n- always\n- size: {over: 1}", R"({"any":["always",{"size":{"over":1}}]})"}));

class ConditionFaults : public testing::TestWithParam<Form> {};

TEST_P(ConditionFaults, NameLineAndRemedy) {
  EXPECT_EQ(canonical(GetParam().written), GetParam().stored);
}

INSTANTIATE_TEST_SUITE_P(
    All, ConditionFaults,
    testing::Values(
        Form{"alwys", "1: unknown condition 'alwys' (did you mean 'always'?)"},
        Form{"{atachment_name: x}",
             "1: unknown condition 'atachment_name' (did you mean 'attachment_name'?)"},
        Form{"{filename: x}", "1: unknown condition 'filename' (did you mean 'attachment_name'?)"},
        Form{"{always: 1}", "1: 'always' takes no value (write: when: always)"},
        Form{"subject",
             "1: condition 'subject' needs a value (write: {subject: {matches: \"invoice\"}})"},
        Form{"[always]", "1: a list is no condition (write: {all: […]} or {any: […]})"},
        Form{"{}", "1: an empty condition (write 'always' for every message)"},
        Form{"subject: a\nsender: b",
             "1: a condition has one key, this one has 'subject' and 'sender' (join them: {all: "
             "[…]} or {any: […]})"},
        Form{"header: X-A",
             "1: condition 'header' needs keys (write: {header: {name: X-Spam-Flag, matches: "
             "\"^yes\"}})"},
        Form{"header: {matches: x}",
             "1: condition 'header' needs 'name' (write: {header: {name: X-Spam-Flag, matches: "
             "\"^yes\"}})"},
        Form{"header: {name: 'X-A:'}",
             "1: header name 'X-A:' (write the name alone, without ':' and blanks)"},
        Form{"header:\n  name: X\n  match: y",
             "3: unknown key 'match' in condition 'header' (did you mean 'matches'?)"},
        Form{"subject: '*test*'",
             "1: regular expression '*test*': nothing to repeat at character 1, '*' (it is looked "
             "for anywhere in the text: leave the stars at its ends out; write .* for any "
             "characters, \\* \\+ or \\? for the character itself)"},
        Form{
            "subject: {matches: ['a', 'b(']}",
            "1: regular expression 'b(': a \"(\" that is never closed at character 2 (close it, or "
            "write \\( for the character itself)"},
        Form{"subject: {matches: []}",
             "1: condition 'subject' has an empty list (write: {subject: {matches: "
             "\"invoice\"}})"},
        Form{"attachment_name: [{x: y}]",
             "1: condition 'attachment_name' needs texts (write: {attachment_name: [\"*.exe\", "
             "\"*.scr\"]})"},
        Form{"size: {over: ten}",
             "1: size 'ten' (write a whole number of bytes, kB, MB or GB: 10MB)"},
        Form{"size: {over: -1}",
             "1: size '-1' (write a whole number of bytes, kB, MB or GB: 10MB)"},
        Form{"size: {over: 99999999999GB}",
             "1: size '99999999999GB' (write a whole number of bytes, kB, MB or GB: 10MB)"},
        Form{"size: {over: 9, under: 3}", "1: no size is over 9 and under 3 bytes (swap them)"},
        Form{"size: {}",
             "1: condition 'size' needs 'over' or 'under' (write: {size: {over: 10MB}})"},
        Form{"any: []",
             "1: condition 'any' needs a list of conditions (write: {any: [CONDITION, "
             "CONDITION]})"},
        Form{"any:\n- alwys\n- size: {over: x}",
             "2: unknown condition 'alwys' (did you mean 'always'?)\n"
             "3: size 'x' (write a whole number of bytes, kB, MB or GB: 10MB)"}));

TEST(Condition, RefusesDeepNesting) {
  std::string text = "always";
  for (int i = 0; i < kMaxConditionDepth; ++i) text = "{not: " + text + "}";
  EXPECT_EQ(canonical(text).front(), '{');
  EXPECT_EQ(canonical("{not: " + text + "}"),
            "1: conditions nested more than 20 deep (write it flatter, or as two rules)");
}

TEST(Condition, RefusesAVeryLongPattern) {
  EXPECT_EQ(canonical("subject: " + std::string(5000, 'x')),
            "1: a pattern of more than 4096 characters (write several shorter ones)");
}

}  // namespace
}  // namespace gateway::policy
