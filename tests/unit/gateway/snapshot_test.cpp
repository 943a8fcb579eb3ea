#include "gateway/policy/snapshot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/unit/gateway/policy_texts.h"

namespace gateway::policy {
namespace {

using testing::ElementsAre;

RuleRow rule(unsigned int id, unsigned int order) {
  RuleRow row;
  row.id = id;
  row.name = "r" + std::to_string(id);
  row.order = order;
  row.condition = "\"always\"";
  return row;
}

std::vector<std::string> buildFaults(const PolicyRows& rows) {
  Diagnostics diagnostics("store");
  EXPECT_EQ(Snapshot::build(rows, diagnostics), nullptr);
  return textsOf(diagnostics);
}

TEST(Snapshot, HoldsEnabledRulesInOrder) {
  PolicyRows rows;
  rows.rules = {rule(1, 30), rule(2, 10), rule(3, 20)};
  rows.rules[2].enabled = false;
  Diagnostics diagnostics("store");
  const auto snapshot = Snapshot::build(rows, diagnostics);
  ASSERT_NE(snapshot, nullptr);
  ASSERT_EQ(snapshot->rules().size(), 2u);
  EXPECT_EQ(snapshot->rules()[0].id, 2u);
  EXPECT_EQ(snapshot->rules()[1].id, 1u);
}

TEST(Snapshot, RefusesRowsThatNobodyCanRun) {
  PolicyRows rows;
  rows.rules = {rule(1, 1)};
  rows.rules[0].condition = "{\"when\":1}";
  EXPECT_THAT(buildFaults(rows),
              ElementsAre(testing::StartsWith("store: rule 1: unknown condition 'when'")));
  rows.rules[0] = rule(1, 1);
  rows.rules[0].condition = "{";
  EXPECT_THAT(buildFaults(rows),
              ElementsAre(testing::StartsWith("store: rule 1: stored condition: not JSON")));
  rows.rules[0] = rule(1, 1);
  rows.rules[0].actions = {{6, ""}};
  EXPECT_THAT(buildFaults(rows), ElementsAre("store: rule 1: unknown action type 6 (the policy "
                                             "needs a newer version of this program)"));
  rows.rules[0].actions = {{12, "rubbish"}};
  EXPECT_THAT(buildFaults(rows),
              ElementsAre("store: rule 1: action 'postpone' refuses its setting 'rubbish'"));
  rows.rules = {rule(4, 1), rule(4, 2)};
  EXPECT_THAT(buildFaults(rows), ElementsAre("store: rule 4: the id stands twice (choose a number "
                                             "never used before)"));
  rows.rules = {rule(0, 1)};
  EXPECT_THAT(buildFaults(rows), ElementsAre("store: rule 0: a rule id is 1 or above"));
}

TEST(Snapshot, RefusesObjectsThatNobodyCanUse) {
  PolicyRows rows;
  rows.objects = {{1, 3, "a", "7:1:a:"}, {1, 3, "b", "7:1:b:"}};
  EXPECT_THAT(buildFaults(rows), ElementsAre("store: the object id 1 stands twice"));
  rows.objects = {{1, 3, "a", "7:1:a:"}};
  rows.rules = {rule(1, 1)};
  rows.rules[0].actions = {{2, "1-2"}};
  EXPECT_THAT(buildFaults(rows), ElementsAre("store: rule 1: action 'quarantine' refers to the "
                                             "object 2, which is no quarantine area"));
  rows.rules[0].actions = {{0, "1-1"}};
  EXPECT_THAT(buildFaults(rows), ElementsAre("store: rule 1: action 'archive' refers to the "
                                             "object 1, which is no archive area"));
}

TEST(Snapshot, LeavesOutObjectsThatNoRuleUsesAndNobodyCan) {
  PolicyRows rows;
  rows.objects = {{1, 9, "a", "7:1:a:"}, {2, 3, "b", "7:5:b:"}};
  rows.rules = {rule(1, 1)};
  Diagnostics diagnostics("store");
  EXPECT_NE(Snapshot::build(rows, diagnostics), nullptr);
  EXPECT_THAT(textsOf(diagnostics),
              ElementsAre("store: warning: the object 1 of type 9, 'a', cannot be built from "
                          "'7:1:a:' (correct it, or remove it; rules cannot use it)",
                          "store: warning: the object 2 of type 3, 'b', cannot be built from "
                          "'7:5:b:' (correct it, or remove it; rules cannot use it)"));
  rows.rules[0].actions = {{2, "1-2"}};
  Diagnostics referring("store");
  EXPECT_EQ(Snapshot::build(rows, referring), nullptr);
  EXPECT_EQ(textsOf(referring).back(),
            "store: rule 1: action 'quarantine' refers to the object 2, which is no quarantine "
            "area");
}

TEST(Snapshot, NamesTheAreasOfItsActions) {
  PolicyRows rows;
  rows.objects = {{5, 3, "virus", "7:5:virus:"}};
  rows.rules = {rule(1, 1)};
  rows.rules[0].actions = {{2, "1-5"}};
  Diagnostics diagnostics("store");
  const auto snapshot = Snapshot::build(rows, diagnostics);
  ASSERT_NE(snapshot, nullptr);
  EXPECT_EQ(snapshot->rules()[0].actions[0].value, "virus");
  ASSERT_NE(snapshot->findObject(5), nullptr);
  EXPECT_EQ(snapshot->findObject(5)->setting, "7:5:virus:");
  EXPECT_EQ(snapshot->findObject(6), nullptr);
}

TEST(Snapshot, ChecksDisabledRulesToo) {
  PolicyRows rows;
  rows.rules = {rule(1, 1)};
  rows.rules[0].enabled = false;
  rows.rules[0].actions = {{18, ""}};
  EXPECT_THAT(buildFaults(rows),
              ElementsAre("store: rule 1: action 'x_header' refuses its setting ''"));
}

}  // namespace
}  // namespace gateway::policy
