#include "gateway/policy/rule_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/unit/gateway/policy_texts.h"

namespace gateway::policy {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string withOptions(const std::string& options) {
  return "rules:\n- id: 15\n  when: always\n  actions: [delete]\n  " + options + "\n";
}

RuleRow ruleWith(const std::string& options) {
  return loadGood(withOptions(options)).rows.rules.at(0);
}

TEST(RuleOptions, AreReadIntoTheRow) {
  EXPECT_EQ(ruleWith("enabled: true").onFailure, OnFailure::TempFail);
  EXPECT_EQ(ruleWith("enabled: true").verdict, RuleVerdict());
  EXPECT_EQ(ruleWith("on_failure: tempfail").onFailure, OnFailure::TempFail);
  EXPECT_EQ(ruleWith("on_failure: accept").onFailure, OnFailure::Accept);
  EXPECT_EQ(ruleWith("verdict: {reject: 'No: 100% no'}").verdict,
            (RuleVerdict{RuleVerdict::Kind::Reject, "No: 100% no"}));
  EXPECT_EQ(ruleWith("verdict: {tempfail: Later}").verdict,
            (RuleVerdict{RuleVerdict::Kind::TempFail, "Later"}));
  EXPECT_EQ(ruleWith("verdict:\n    reject: >-\n      of two\n      lines").verdict.text,
            "of two lines");
}

TEST(RuleOptions, ReachTheSnapshot) {
  const auto snapshot = snapshotOf(withOptions("on_failure: accept\n  verdict: {reject: No}"));
  ASSERT_EQ(snapshot->rules().size(), 1u);
  EXPECT_EQ(snapshot->rules()[0].onFailure, OnFailure::Accept);
  EXPECT_EQ(snapshot->rules()[0].verdict.text, "No");
}

TEST(RuleOptions, AreRefusedWithARemedy) {
  const std::pair<const char*, const char*> cases[] = {
      {"on_failure: acept", "'on_failure' is 'acept' (did you mean 'accept'?)"},
      {"on_failure: ignore", "'on_failure' is 'ignore' (did you mean 'accept'?)"},
      {"on_failure: zzz", "'on_failure' is 'zzz' (known: accept, tempfail)"},
      {"on_failure: {accept: now}", "'on_failure' is one word (write accept or tempfail)"},
      {"on_failure: ~", "'on_failure' is one word (write accept or tempfail)"},
      {"on_failures: accept", "unknown key 'on_failures' in a rule (did you mean 'on_failure'?)"},
      {"verdict: reject",
       "a verdict is an answer with its text (write: verdict: {reject: We do not take such mail})"},
      {"verdict: {}",
       "a verdict is an answer with its text (write: verdict: {reject: We do not take such mail})"},
      {"verdict: {rejct: no}", "unknown verdict 'rejct' (did you mean 'reject'?)"},
      {"verdict: {bounce: no}", "unknown verdict 'bounce' (did you mean 'reject'?)"},
      {"verdict: {accept: no}", "unknown verdict 'accept' (known: reject, tempfail)"},
      {"verdict: {reject: no, tempfail: no}",
       "a verdict has one key, this one has 'reject' and 'tempfail' (keep one)"},
      {"verdict: {reject: [no]}",
       "verdict 'reject' needs a text (write: verdict: {reject: We do not take such mail})"},
      {"verdict: {reject: }",
       "verdict 'reject' needs a text (write: verdict: {reject: We do not take such mail})"},
      {"verdict: {reject: '550 no'}",
       "the text of verdict 'reject' begins with a code, '550' (leave it out: the gateway puts 550 "
       "5.7.1 or 451 4.7.1 in front)"}};
  for (const auto& [options, fault] : cases) {
    const auto faults = faultsOf(withOptions(options));
    ASSERT_EQ(faults.size(), 1u) << options;
    EXPECT_EQ(faults[0].substr(0, faults[0].find(' ')), "policy.yaml:5:") << options;
    EXPECT_EQ(faults[0].substr(faults[0].find(' ') + 1), std::string("rule 15: ") + fault);
  }
}

TEST(RuleOptions, TakeATextThatFitsAReply) {
  for (const std::string text : {"No", "5 items", "12345 is your number", "a.b.c", "5.7 percent",
                                 "~ !", "1.2.3.4 is listed", "500th message", "say \"no\"\\"}) {
    EXPECT_EQ(verdictTextFault(text), "") << text;
  }
  EXPECT_EQ(verdictTextFault(std::string(400, 'x')), "");
}

TEST(RuleOptions, RefuseATextThatDoesNotFitAReply) {
  const std::pair<std::string, const char*> cases[] = {
      {"", "is empty"},
      {"a\nb", "has a line break"},
      {"a\r\n250 ok", "has a line break"},
      {"a\tb", "no printable ASCII"},
      {std::string("a\0b", 3), "no printable ASCII"},
      {"\x1b[31m", "no printable ASCII"},
      {"caf\xC3\xA9", "no printable ASCII"},
      {"\x7f", "no printable ASCII"},
      {" a", "a blank"},
      {"a ", "a blank"},
      {std::string(401, 'x'), "has 401 characters (at most 400"},
      {"550", "a code, '550'"},
      {"451 later", "a code, '451'"},
      {"550-5.7.1 no", "a code, '550-5.7.1'"},
      {"5.7.1 no", "a code, '5.7.1'"}};
  for (const auto& [text, fault] : cases) EXPECT_THAT(verdictTextFault(text), HasSubstr(fault));
}

TEST(RuleOptions, OfRowsFromElsewhereAreLookedAtToo) {
  PolicyRows rows;
  rows.rules.emplace_back();
  rows.rules[0].id = 4;
  rows.rules[0].condition = "\"always\"";
  rows.rules[0].verdict = {RuleVerdict::Kind::Reject, "no\r\n250 yes"};
  Diagnostics diagnostics("store");
  EXPECT_EQ(Snapshot::build(rows, diagnostics), nullptr);
  ASSERT_EQ(textsOf(diagnostics).size(), 1u);
  EXPECT_THAT(textsOf(diagnostics)[0],
              HasSubstr("rule 4: the text of verdict 'reject' has a line break"));
}

}  // namespace
}  // namespace gateway::policy
