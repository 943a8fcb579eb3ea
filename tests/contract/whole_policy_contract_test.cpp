// What every store promises of rules and of whole policies.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/contract/policy_contract.h"

namespace contract {

TEST_F(PolicyContract, ListsRulesByPage) {
  const PolicyRecord next = fourRules();
  ASSERT_EQ(replace(next), StoreError::None);
  const auto page = [&](std::optional<std::uint32_t> after, std::size_t limit) {
    PolicyRecord part;
    part.rules.resize(9);
    part.objects.resize(9);
    const StoreStatus status = store_->listRules({after, limit}, part);
    EXPECT_TRUE(status.ok()) << status.text;
    EXPECT_EQ(part.revision, 1);
    EXPECT_EQ(part.lastObjectId, 3u);
    return part;
  };
  const auto rules = [&](std::size_t first, std::size_t count) {
    const auto from = next.rules.begin() + static_cast<std::ptrdiff_t>(first);
    return std::vector<RuleRecord>(from, from + static_cast<std::ptrdiff_t>(count));
  };
  EXPECT_EQ(page({}, SIZE_MAX).rules, next.rules);
  EXPECT_EQ(page({}, 2).rules, rules(0, 2));
  EXPECT_EQ(page(10, 1).rules, rules(2, 1));
  EXPECT_EQ(page(10, 5).rules, rules(2, 2));
  EXPECT_TRUE(page(20, 5).rules.empty());
  EXPECT_TRUE(page({}, 0).rules.empty());
  // With the objects that these rules refer to, and no others.
  EXPECT_EQ(idsIn(page({}, 2)), std::vector<std::uint32_t>{3});
  EXPECT_EQ(idsIn(page(40, 2)), (std::vector<std::uint32_t>{1, 3}));
  EXPECT_TRUE(idsIn(page(20, 5)).empty());
  const ObjectRecord object = page({}, 1).objects.at(0);
  EXPECT_EQ(object.name, "3");
  EXPECT_TRUE(object.inUse);
  EXPECT_EQ(object.content, "") << "listings leave the contents out";
}

TEST_F(PolicyContract, FindsARule) {
  ASSERT_EQ(replace(fourRules()), StoreError::None);
  PolicyRecord part;
  ASSERT_TRUE(store_->findRule(30, part).ok());
  EXPECT_EQ(part.rules, std::vector{fourRules().rules[2]});
  EXPECT_EQ(idsIn(part), (std::vector<std::uint32_t>{1, 3}));
  ASSERT_TRUE(store_->findRule(10, part).ok());
  EXPECT_TRUE(part.objects.empty());
  const PolicyRecord before = part;
  for (const std::uint32_t id : {0U, 11U, UINT32_MAX}) {
    EXPECT_EQ(store_->findRule(id, part).error, StoreError::NotFound);
    EXPECT_EQ(store_->listRules({id, 10}, part).error, StoreError::NotFound);
  }
  EXPECT_EQ(part.rules, before.rules) << "left as it was";
}

TEST_F(PolicyContract, ListsNoRulesOfAnEmptyStore) {
  PolicyRecord part;
  ASSERT_TRUE(store_->listRules({}, part).ok());
  EXPECT_TRUE(part.rules.empty());
  EXPECT_EQ(store_->findRule(1, part).error, StoreError::NotFound);
}

TEST_F(PolicyContract, TakesAWholePolicyAndGivesItBack) {
  const PolicyRecord next = sample();
  ASSERT_EQ(replace(next), StoreError::None);
  const PolicyRecord kept = policy();
  EXPECT_EQ(kept.revision, 1);
  EXPECT_EQ(kept.lastObjectId, 3u);
  EXPECT_EQ(kept.rules, next.rules);
  ASSERT_EQ(kept.objects.size(), 3u);
  EXPECT_TRUE(kept.objects[0].inUse);
  EXPECT_FALSE(kept.objects[1].inUse);
  EXPECT_EQ(kept.objects[2].type, kNotification);
  EXPECT_EQ(done(), (std::vector<std::string>{"add stamp 'legal' (1)", "add stamp 'short' (2)",
                                              "add notification 'legal' (3)",
                                              "write rule 10 'rule 10'", "write rule 5 'rule 5'"}));
}

TEST_F(PolicyContract, KeepsWhatRulesSayOfFailuresAndTheirVerdicts) {
  PolicyRecord next = policy();
  const RuleVerdict verdicts[] = {{},
                                  {RuleVerdict::Kind::Reject, "not here"},
                                  {RuleVerdict::Kind::TempFail, std::string("'; -- \0\xFF$1", 10)},
                                  {RuleVerdict::Kind::None, "said by nobody"},
                                  {RuleVerdict::Kind::Reject, ""}};
  for (const OnFailure onFailure : {OnFailure::TempFail, OnFailure::Accept}) {
    for (const RuleVerdict& verdict : verdicts) {
      const auto id = static_cast<std::uint32_t>(next.rules.size() + 1);
      next.rules.push_back(ruleOf(id, id, {}));
      next.rules.back().onFailure = onFailure;
      next.rules.back().verdict = verdict;
    }
  }
  ASSERT_EQ(replace(next), StoreError::None);
  EXPECT_EQ(policy().rules, next.rules);
}

TEST_F(PolicyContract, WritesARuleAnewWhenOnlyItsAnswerDiffers) {
  ASSERT_EQ(replace(sample()), StoreError::None);
  const std::size_t lines = done().size();
  PolicyRecord next = policy();
  next.rules[1].onFailure = OnFailure::Accept;
  ASSERT_EQ(replace(next), StoreError::None);
  next = policy();
  next.rules[0].verdict = {RuleVerdict::Kind::Reject, "one"};
  ASSERT_EQ(replace(next), StoreError::None);
  next = policy();
  next.rules[0].verdict.text = "two";
  ASSERT_EQ(replace(next), StoreError::None);
  EXPECT_EQ(policy().rules, next.rules);
  std::vector<std::string> after = done();
  after.erase(after.begin(), after.begin() + static_cast<std::ptrdiff_t>(lines));
  EXPECT_EQ(after, (std::vector<std::string>{"write rule 5 'rule 5'", "write rule 10 'rule 10'",
                                             "write rule 10 'rule 10'"}));
}

TEST_F(PolicyContract, ChangesNothingForTheSamePolicy) {
  ASSERT_EQ(replace(sample()), StoreError::None);
  const PolicyRecord kept = policy();
  const std::size_t lines = done().size();
  note_ = {"other", 3000};
  ASSERT_EQ(replace(kept), StoreError::None);
  EXPECT_EQ(policy().revision, kept.revision);
  EXPECT_EQ(done().size(), lines);
}

TEST_F(PolicyContract, ReplacesWhatDiffersAndLeavesTheRest) {
  ASSERT_EQ(replace(sample()), StoreError::None);
  const std::vector<std::string> before = done();
  PolicyRecord next = policy();
  note_ = {"other", 3000};
  // Two names change places, one object goes, one comes; a rule goes, one moves, one comes.
  std::swap(next.objects[0].name, next.objects[1].name);
  next.objects.pop_back();
  next.objects.push_back(objectOf(1, kStamp, "new"));
  next.objects.back().id = next.lastObjectId + 1;
  next.rules = {ruleOf(10, 7, {{8, "2-1-4", {4, 1}}}), ruleOf(6, 3, {})};
  next.rules[1].enabled = false;
  ASSERT_EQ(replace(next), StoreError::None);
  const PolicyRecord kept = policy();
  ASSERT_EQ(kept.objects.size(), 3u);
  EXPECT_EQ(kept.objects[0].name, "short");
  EXPECT_EQ(kept.objects[1].name, "legal");
  EXPECT_EQ(kept.objects[0].createdAt, 1000);
  EXPECT_EQ(kept.objects[0].changedAt, 3000);
  EXPECT_EQ(kept.objects[2].id, 4u);
  ASSERT_EQ(kept.rules.size(), 2u);
  EXPECT_EQ(kept.rules[0], next.rules[1]);
  EXPECT_EQ(kept.rules[1], next.rules[0]);
  std::vector<std::string> after = done();
  after.erase(after.begin(), after.begin() + static_cast<std::ptrdiff_t>(before.size()));
  EXPECT_EQ(after, (std::vector<std::string>{
                       "remove rule 5 'rule 5'", "remove notification 'legal' (3)",
                       "change stamp 'short' (1)", "change stamp 'legal' (2)",
                       "add stamp 'new' (4)", "write rule 10 'rule 10'", "write rule 6 'rule 6'"}));
}

TEST_F(PolicyContract, LetsNamesChangePlacesWhateverOthersAreCalled) {
  // What a name that is freed for a moment might be called, an object has, or is to get.
  const std::string odd("\0001", 2);
  add(objectOf(1, kStamp, "a"));
  add(objectOf(1, kStamp, "b"));
  add(objectOf(1, kStamp, odd));
  PolicyRecord next = policy();
  std::swap(next.objects[0].name, next.objects[1].name);
  ASSERT_EQ(replace(next), StoreError::None);
  EXPECT_EQ(find(1).name, "b");
  EXPECT_EQ(find(2).name, "a");
  EXPECT_EQ(find(3).name, odd);
  next = policy();
  next.objects[2].name = "a";
  next.objects[1].name = "b";
  next.objects[0].name = std::string("\0002", 2);
  ASSERT_EQ(replace(next), StoreError::None);
  EXPECT_EQ(find(1).name, next.objects[0].name);
  EXPECT_EQ(find(3).name, "a");
}

TEST_F(PolicyContract, RefusesAPolicyThatWasReadBeforeAnotherChange) {
  const PolicyRecord next = sample();
  add(objectOf(1, kStamp, "in between"));
  EXPECT_EQ(replace(next), StoreError::Conflict);
  EXPECT_TRUE(policy().rules.empty());
}

TEST_F(PolicyContract, RefusesAPolicyThatDoesNotFitTogether) {
  ASSERT_EQ(replace(sample()), StoreError::None);
  ASSERT_TRUE(store_->removeObject(3, 1, note_).ok());
  const PolicyRecord good = policy();
  const auto refused = [&](const char* what, StoreError error, auto spoil) {
    PolicyRecord next = good;
    spoil(next);
    EXPECT_EQ(replace(next), error) << what;
    EXPECT_EQ(policy().revision, good.revision) << what;
  };
  constexpr StoreError kInvalid = StoreError::InvalidArgument;
  refused("object without id", kInvalid, [](PolicyRecord& p) { p.objects[1].id = 0; });
  refused("id twice", kInvalid, [](PolicyRecord& p) { p.objects[1].id = p.objects[0].id; });
  refused("id given before", kInvalid, [](PolicyRecord& p) { p.objects[1].id = 3; });
  refused("other owner", kInvalid, [](PolicyRecord& p) { p.objects[1].owner = 2; });
  refused("other type", kInvalid, [](PolicyRecord& p) { p.objects[1].type = kNotification; });
  refused("name twice", StoreError::NameTaken,
          [](PolicyRecord& p) { p.objects[1].name = p.objects[0].name; });
  refused("rule without id", kInvalid, [](PolicyRecord& p) { p.rules[0].id = 0; });
  refused("rule twice", kInvalid, [](PolicyRecord& p) { p.rules[0].id = p.rules[1].id; });
  refused("place twice", kInvalid, [](PolicyRecord& p) { p.rules[0].order = p.rules[1].order; });
  refused("reference to nothing", kInvalid,
          [](PolicyRecord& p) { p.rules[0].actions[0].objects = {77}; });
  refused("object in use removed", kInvalid,
          [](PolicyRecord& p) { p.objects.erase(p.objects.begin()); });
}

}  // namespace contract
