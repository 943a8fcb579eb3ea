#include "gateway/policy/policy_records.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gateway/policy/stored_policy.h"
#include "host/store/store.h"
#include "library/framework/kavi_action.h"
#include "tests/unit/gateway/policy_texts.h"

namespace gateway::policy {
namespace {

using host::store::ObjectRecord;
using host::store::PolicyRecord;
using testing::ElementsAre;

constexpr char kPolicy[] = R"(
quarantine_areas: [{name: virus, aging_days: 7}, {name: spam}]
archive_areas: [{name: journal}]
stamps: [{name: legal, text: Hello}]
notifications: [{name: admin, trap: t}, {name: owner, trap: u}]
rules:
  - {id: 20, name: second, when: always, actions: [{stamp: legal}, {notify: [owner, admin]}]}
  - {id: 10, name: first, when: {size: {over: 1}}, enabled: no, actions: [{quarantine: spam}]}
)";

PolicyRecord recordOf(const PolicyRows& rows, const PolicyRecord& present) {
  Diagnostics diagnostics("policy.yaml");
  PolicyRecord record;
  EXPECT_TRUE(policy::recordOf(rows, present, record, diagnostics))
      << testing::PrintToString(textsOf(diagnostics));
  return record;
}

/// "id name content"
std::vector<std::string> objectLines(const PolicyRecord& record) {
  std::vector<std::string> lines;
  for (const ObjectRecord& object : record.objects) {
    lines.push_back(std::to_string(object.id) + " " + object.name + " " + object.content);
  }
  return lines;
}

/// "id@order setting setting"
std::vector<std::string> ruleLines(const PolicyRecord& record) {
  std::vector<std::string> lines;
  for (const host::store::RuleRecord& rule : record.rules) {
    std::string line = std::to_string(rule.id) + "@" + std::to_string(rule.order);
    for (const host::store::ActionRecord& action : rule.actions) line += " " + action.setting;
    lines.push_back(line);
  }
  return lines;
}

ObjectRecord object(std::uint32_t id, unsigned int type, const std::string& name,
                    const std::string& content) {
  ObjectRecord record;
  record.id = id;
  record.type = type;
  record.name = name;
  record.content = content;
  return record;
}

TEST(PolicyRecords, GiveAFreshStoreTheIdsOfTheFile) {
  const PolicyRecord record = recordOf(loadGood(kPolicy).rows, {});
  EXPECT_THAT(objectLines(record),
              ElementsAre("1 virus 7:5:virus:", "2 spam 0:4:spam:", "3 journal 0:7:journal:",
                          "4 legal 2:1:5:Hello:0::", testing::StartsWith("5 admin"),
                          testing::StartsWith("6 owner")));
  EXPECT_THAT(ruleLines(record), ElementsAre("20@100 1-4 2-6-5", "10@200 1-2"));
  EXPECT_THAT(record.rules[0].actions[1].objects, ElementsAre(6, 5));
  EXPECT_FALSE(record.rules[1].enabled);
  EXPECT_EQ(record.rules[1].condition, R"({"size":{"over":1}})");
}

TEST(PolicyRecords, KeepIdsByNameAndGiveNewOnesAboveAll) {
  PolicyRecord present;
  present.revision = 9;
  present.lastObjectId = 50;
  present.objects = {object(7, 1, "owner", "old"), object(30, 3, "spam", "0:4:spam:"),
                     object(31, 3, "gone", "0:4:gone:"), object(44, 2, "virus", "a stamp's name")};
  present.rules.resize(2);
  present.rules[0].id = 10;
  present.rules[0].order = 3;
  present.rules[1].id = 99;
  present.rules[1].order = 4;
  const PolicyRecord record = recordOf(loadGood(kPolicy).rows, present);
  EXPECT_EQ(record.revision, 9);
  EXPECT_THAT(objectLines(record),
              ElementsAre(testing::StartsWith("7 owner 5:owner:"),
                          "30 spam 0:4:spam:", "51 virus 7:5:virus:", "52 journal 0:7:journal:",
                          "53 legal 2:1:5:Hello:0::", testing::StartsWith("54 admin")));
  EXPECT_THAT(ruleLines(record), ElementsAre("20@1 1-53 2-7-54", "10@3 1-30"));
}

TEST(PolicyRecords, LeaveAloneWhatNoFileSpeaksOf) {
  PolicyRecord present;
  present.lastObjectId = 4;
  present.objects = {object(1, 3, "builtin", "0:7:builtin:"), object(2, 3, "mine", "0:4:mine:"),
                     object(3, 9, "strange", "x"), object(4, 3, "gone", "0:4:gone:")};
  present.objects[0].builtIn = true;
  present.objects[1].owner = 5;
  const LoadedPolicy loaded =
      loadGood("quarantine_areas: [{name: mine, aging_days: 1}]\nrules: []");
  EXPECT_THAT(
      objectLines(recordOf(loaded.rows, present)),
      ElementsAre("1 builtin 0:7:builtin:", "2 mine 0:4:mine:", "3 strange x", "5 mine 1:4:mine:"));
  const LoadedPolicy naming =
      loadGood("quarantine_areas: [{name: builtin, aging_days: 1}]\nrules: []");
  const PolicyRecord record = recordOf(naming.rows, present);
  EXPECT_THAT(objectLines(record),
              ElementsAre("1 builtin 1:7:builtin:", "2 mine 0:4:mine:", "3 strange x"));
  EXPECT_TRUE(record.objects[0].builtIn);
}

TEST(PolicyRecords, RefuseWhatCannotStandInAStore) {
  PolicyRecord full;
  full.lastObjectId = 0xFFFFFFFF;
  PolicyRecord record;
  Diagnostics diagnostics("policy.yaml");
  EXPECT_FALSE(policy::recordOf(loadGood(kPolicy).rows, full, record, diagnostics));
  EXPECT_EQ(textsOf(diagnostics).front(),
            "policy.yaml: the store has given every id that there is (begin a new store)");
  PolicyRows rows = loadGood(kPolicy).rows;
  rows.objects.pop_back();
  Diagnostics missing("policy.yaml");
  EXPECT_FALSE(policy::recordOf(rows, {}, record, missing));
  EXPECT_THAT(textsOf(missing), ElementsAre("policy.yaml: rule 20: action 'notify' refers to the "
                                            "object 6, which is missing"));
}

TEST(StoredPolicy, ComesBackFromAStoreAsItWentIn) {
  const auto store = host::store::makeMemoryStore();
  const PolicyRecord record = recordOf(loadGood(kPolicy).rows, {});
  std::int64_t revision = 0;
  ASSERT_TRUE(store->replacePolicy(record, {"tester", 1}, revision).ok());
  Diagnostics diagnostics("memory");
  const StoredPolicy policy = loadFromStore(*store, diagnostics);
  EXPECT_THAT(textsOf(diagnostics), ElementsAre());
  ASSERT_TRUE(policy);
  EXPECT_EQ(policy.revision, revision);
  ASSERT_EQ(policy.snapshot->rules().size(), 1u) << "one is switched off";
  EXPECT_EQ(policy.snapshot->rules()[0].actions[1].value, "owner, admin");

  PolicyRecord again;
  ASSERT_TRUE(store->readPolicy(again).ok());
  const PolicyRecord same = recordOf(loadGood(kPolicy).rows, again);
  std::int64_t later = 0;
  ASSERT_TRUE(store->replacePolicy(same, {"tester", 2}, later).ok());
  EXPECT_EQ(later, revision) << "nothing differs";
}

TEST(StoredPolicy, SaysWhatKeepsItFromBeingUsed) {
  const auto store = host::store::makeMemoryStore();
  PolicyRecord record = recordOf(loadGood(kPolicy).rows, {});
  record.rules[0].condition = "rubbish";
  std::int64_t revision = 0;
  ASSERT_TRUE(store->replacePolicy(record, {"tester", 1}, revision).ok());
  Diagnostics diagnostics("memory");
  EXPECT_FALSE(loadFromStore(*store, diagnostics));
  EXPECT_THAT(textsOf(diagnostics),
              ElementsAre(testing::StartsWith("memory: rule 20: stored condition: not JSON")));
}

TEST(StoredPolicy, SaysWhichFileCannotBeRead) {
  Diagnostics diagnostics("x");
  EXPECT_FALSE(loadFromFile("/nonexistent/policy.yaml", diagnostics));
  EXPECT_THAT(textsOf(diagnostics), ElementsAre(testing::StartsWith("x: cannot be read")));
}

}  // namespace
}  // namespace gateway::policy
