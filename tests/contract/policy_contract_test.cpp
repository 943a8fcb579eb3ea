// What every store of named objects and rules promises.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "library/platform/kavi_named_obj.h"
#include "tests/contract/subjects.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using namespace host::store;

constexpr std::uint32_t kStamp = KaviNamedObj::StampType;
constexpr std::uint32_t kNotification = KaviNamedObj::NotificationType;

ObjectRecord objectOf(std::uint32_t owner, std::uint32_t type, std::string name,
                      std::string content = "content") {
  ObjectRecord object;
  object.owner = owner;
  object.type = type;
  object.name = std::move(name);
  object.content = std::move(content);
  return object;
}

RuleRecord ruleOf(std::uint32_t id, std::uint32_t order, std::vector<ActionRecord> actions) {
  return {id, "rule " + std::to_string(id), order, true, "size > 5", std::move(actions)};
}

class PolicyContract : public ::testing::Test {
 protected:
  std::uint32_t add(const ObjectRecord& object) {
    std::uint32_t id = 0;
    const StoreStatus status = store_->addObject(object, note_, id);
    EXPECT_TRUE(status.ok()) << status.text;
    return id;
  }
  ObjectRecord find(std::uint32_t id) {
    ObjectRecord object;
    const StoreStatus status = store_->findObject(id, object);
    EXPECT_TRUE(status.ok()) << status.text;
    return object;
  }
  std::vector<std::uint32_t> idsOf(const ObjectPage& page) {
    std::vector<ObjectRecord> objects(3);
    EXPECT_TRUE(store_->listObjects(page, objects).ok());
    std::vector<std::uint32_t> ids;
    for (const ObjectRecord& object : objects) ids.push_back(object.id);
    return ids;
  }
  PolicyRecord policy() {
    PolicyRecord policy;
    const StoreStatus status = store_->readPolicy(policy);
    EXPECT_TRUE(status.ok()) << status.text;
    return policy;
  }
  StoreError replace(const PolicyRecord& policy) {
    std::int64_t revision = -1;
    const StoreStatus status = store_->replacePolicy(policy, note_, revision);
    if (status.ok()) {
      EXPECT_EQ(revision, this->policy().revision);
    }
    return status.error;
  }
  std::vector<std::string> done(std::int64_t afterRow = 0) {
    std::vector<AuditRecord> records;
    EXPECT_TRUE(store_->listAudit(afterRow, 1000, records).ok());
    std::vector<std::string> texts;
    for (const AuditRecord& record : records) texts.push_back(record.what);
    return texts;
  }
  // Two stamps, a notification, and two rules of which one refers to the first stamp.
  PolicyRecord sample() {
    PolicyRecord next = policy();
    for (const char* name : {"legal", "short"}) next.objects.push_back(objectOf(1, kStamp, name));
    next.objects.push_back(objectOf(1, kNotification, "legal"));
    std::uint32_t id = next.lastObjectId;
    for (ObjectRecord& object : next.objects) object.id = ++id;
    next.rules = {ruleOf(10, 1, {{8, "1-1", {next.objects[0].id}}, {1, "", {}}}),
                  ruleOf(5, 2, {{1, "", {}}})};
    return next;
  }
  static std::vector<std::uint32_t> idsIn(const PolicyRecord& part) {
    std::vector<std::uint32_t> ids;
    for (const ObjectRecord& object : part.objects) ids.push_back(object.id);
    return ids;
  }
  PolicyRecord fourRules();

  testing_host::TempFolder temp_;
  std::unique_ptr<PolicyStore> store_ = contract::makePolicyStore(temp_.path());
  ChangeNote note_{"admin", 1000};
};

TEST_F(PolicyContract, IsEmptyAtFirst) {
  const PolicyRecord empty = policy();
  EXPECT_EQ(empty.revision, 0);
  EXPECT_EQ(empty.lastObjectId, 0u);
  EXPECT_TRUE(empty.objects.empty());
  EXPECT_TRUE(empty.rules.empty());
  EXPECT_TRUE(done().empty());
}

TEST_F(PolicyContract, KeepsObjectsWithAnyBytes) {
  std::string every;
  for (int byte = 0; byte < 256; ++byte) every += static_cast<char>(byte);
  const std::string large(1'000'000, '\xFF');
  const std::pair<std::string, std::string> texts[] = {
      {every, large},        {"'; DROP TABLE named_object; --", "\"quoted\" 'text'"},
      {"\xC3\x28", ""},      {"OPP:mine", "opp:"},
      {"", "no name"},       {std::string("a\0b", 3), std::string(3, '\0')},
      {"$1 %s {bytes}", "?"}};
  for (const auto& [name, content] : texts) {
    const ObjectRecord kept = find(add(objectOf(7, kStamp, name, content)));
    EXPECT_EQ(kept.name, name);
    EXPECT_EQ(kept.content, content);
    EXPECT_EQ(kept.owner, 7u);
    EXPECT_EQ(kept.type, kStamp);
    EXPECT_EQ(kept.createdAt, 1000);
    EXPECT_EQ(kept.changedAt, 1000);
    EXPECT_FALSE(kept.inUse);
    EXPECT_FALSE(kept.builtIn);
  }
}

TEST_F(PolicyContract, TakesTheLargestNumbers) {
  ObjectRecord object = objectOf(UINT32_MAX, kStamp, "n");
  object.builtIn = true;
  object.type = kStamp;
  const ObjectRecord kept = find(add(object));
  EXPECT_EQ(kept.owner, UINT32_MAX);
  EXPECT_TRUE(kept.builtIn);
}

TEST_F(PolicyContract, NeverGivesAnIdTwice) {
  const std::uint32_t first = add(objectOf(1, kStamp, "a"));
  EXPECT_GT(first, 0u);
  ASSERT_TRUE(store_->removeObject(first, 1, note_).ok());
  EXPECT_GT(add(objectOf(1, kStamp, "a")), first);
}

TEST_F(PolicyContract, KeepsNamesApartWithinOwnerAndTypeOnly) {
  const std::uint32_t first = add(objectOf(1, kStamp, "a"));
  std::uint32_t id = 99;
  EXPECT_EQ(store_->addObject(objectOf(1, kStamp, "a"), note_, id).error, StoreError::NameTaken);
  EXPECT_EQ(id, 99u);
  const std::uint32_t other = add(objectOf(1, kStamp, "A"));
  add(objectOf(2, kStamp, "a"));
  add(objectOf(1, kNotification, "a"));

  ObjectRecord change = objectOf(1, kStamp, "a", "new");
  change.id = other;
  EXPECT_EQ(store_->changeObject(change, note_).error, StoreError::NameTaken);
  EXPECT_EQ(find(other).name, "A");
  change.id = first;
  EXPECT_TRUE(store_->changeObject(change, note_).ok()) << "its own name is free";
  EXPECT_EQ(find(first).content, "new");
}

TEST_F(PolicyContract, ChangesWhatIsThere) {
  const std::uint32_t id = add(objectOf(1, kStamp, "a"));
  note_ = {"somebody else", 2000};
  ObjectRecord change = objectOf(1, kStamp, "b", "new");
  change.id = id;
  ASSERT_TRUE(store_->changeObject(change, note_).ok());
  const ObjectRecord kept = find(id);
  EXPECT_EQ(kept.name, "b");
  EXPECT_EQ(kept.content, "new");
  EXPECT_EQ(kept.createdAt, 1000);
  EXPECT_EQ(kept.changedAt, 2000);
  for (const ObjectRecord& wrong :
       {objectOf(2, kStamp, "c"), objectOf(1, kNotification, "c"), objectOf(1, kStamp, "c")}) {
    ObjectRecord missing = wrong;
    missing.id = wrong.owner == 1 && wrong.type == kStamp ? id + 1 : id;
    EXPECT_EQ(store_->changeObject(missing, note_).error, StoreError::NotFound);
  }
  EXPECT_EQ(find(id).name, "b");
}

TEST_F(PolicyContract, RefusesAChangeOfWhatWasReadBeforeAnotherChange) {
  const std::uint32_t id = add(objectOf(1, kStamp, "a"));
  std::int64_t read = 0;
  ASSERT_TRUE(store_->readRevision(read).ok());
  add(objectOf(1, kStamp, "of somebody else"));
  ObjectRecord change = objectOf(1, kStamp, "a", "new");
  change.id = id;
  note_.revision = read;
  std::uint32_t other = 99;
  EXPECT_EQ(store_->changeObject(change, note_).error, StoreError::Conflict);
  EXPECT_EQ(store_->removeObject(id, 1, note_).error, StoreError::Conflict);
  EXPECT_EQ(store_->addObject(objectOf(1, kStamp, "b"), note_, other).error, StoreError::Conflict);
  EXPECT_EQ(find(id).content, objectOf(1, kStamp, "a").content);
  note_.revision = read + 1;
  EXPECT_TRUE(store_->changeObject(change, note_).ok());
  note_.revision.reset();
  EXPECT_EQ(find(id).content, "new");
}

TEST_F(PolicyContract, SaysWhatIsNotThere) {
  ObjectRecord object;
  object.name = "before";
  EXPECT_EQ(store_->findObject(3, object).error, StoreError::NotFound);
  EXPECT_EQ(object.name, "before");
  EXPECT_EQ(store_->removeObject(3, 1, note_).error, StoreError::NotFound);
  const std::uint32_t id = add(objectOf(1, kStamp, "a"));
  EXPECT_EQ(store_->removeObject(id, 2, note_).error, StoreError::NotFound) << "another owner";
  EXPECT_EQ(find(id).name, "a");
}

// Bytes that no database can make shorter by packing them.
std::string longName(unsigned int seed) {
  std::mt19937 random(seed);
  std::string name;
  while (name.size() < 100'000) name += static_cast<char>(random() & 0xFF);
  return name;
}

TEST_F(PolicyContract, TakesNamesOfAnyLengthAndKeepsThemUnique) {
  const std::uint32_t id = add(objectOf(1, kStamp, longName(1)));
  const std::uint32_t other = add(objectOf(1, kStamp, longName(2)));
  EXPECT_EQ(find(id).name, longName(1));
  std::uint32_t none = 0;
  EXPECT_EQ(store_->addObject(objectOf(1, kStamp, longName(1)), note_, none).error,
            StoreError::NameTaken);
  ObjectRecord change = find(other);
  change.name = longName(1);
  EXPECT_EQ(store_->changeObject(change, note_).error, StoreError::NameTaken);
  change.name = longName(3);
  EXPECT_TRUE(store_->changeObject(change, note_).ok());
  // One that goes on longer is another; another owner or type may have the same.
  add(objectOf(1, kStamp, longName(1) + "x"));
  add(objectOf(2, kStamp, longName(1)));
  add(objectOf(1, kNotification, longName(1)));
  PolicyRecord next = policy();
  std::swap(next.objects[0].name, next.objects[1].name);
  EXPECT_EQ(replace(next), StoreError::None);
  EXPECT_EQ(find(other).name, longName(1));
}

TEST_F(PolicyContract, ListsPages) {
  std::vector<std::uint32_t> ids;
  for (int i = 0; i < 5; ++i) {
    ids.push_back(add(objectOf(1 + i % 2, i < 3 ? kStamp : kNotification, std::to_string(i))));
  }
  EXPECT_EQ(idsOf({}), ids);
  EXPECT_EQ(idsOf({1, {}, 0, 10}), (std::vector{ids[0], ids[2], ids[4]}));
  EXPECT_EQ(idsOf({{}, kStamp, 0, 10}), (std::vector{ids[0], ids[1], ids[2]}));
  EXPECT_EQ(idsOf({1, kStamp, 0, 10}), (std::vector{ids[0], ids[2]}));
  EXPECT_EQ(idsOf({1, kStamp, ids[0], 10}), (std::vector{ids[2]}));
  EXPECT_EQ(idsOf({{}, {}, 0, 2}), (std::vector{ids[0], ids[1]}));
  EXPECT_EQ(idsOf({{}, {}, ids[1], 2}), (std::vector{ids[2], ids[3]}));
  EXPECT_TRUE(idsOf({9, {}, 0, 2}).empty());
  std::vector<ObjectRecord> objects;
  ASSERT_TRUE(store_->listObjects({}, objects).ok());
  EXPECT_EQ(objects[0].name, "0");
  EXPECT_EQ(objects[0].content, "") << "listings leave the contents out";
}

// Four rules in the order 40, 10, 30, 20, of which some refer to the stamps 1 to 3.
PolicyRecord PolicyContract::fourRules() {
  PolicyRecord next = policy();
  for (std::uint32_t id = 1; id <= 3; ++id) {
    next.objects.push_back(objectOf(1, kStamp, std::to_string(id)));
    next.objects.back().id = id;
  }
  next.rules = {ruleOf(40, 0, {{8, "1-3", {3}}}), ruleOf(10, 7, {}),
                ruleOf(30, 8, {{1, "", {}}, {8, "2-3-1", {3, 1}}}),
                ruleOf(20, UINT32_MAX, {{8, "1-2", {2}}})};
  return next;
}

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

TEST_F(PolicyContract, CountsEachChange) {
  std::int64_t revision = -1;
  ASSERT_TRUE(store_->readRevision(revision).ok());
  EXPECT_EQ(revision, 0);
  const std::uint32_t id = add(objectOf(1, kStamp, "a"));
  std::uint32_t none = 0;
  EXPECT_FALSE(store_->addObject(objectOf(1, kStamp, "a"), note_, none).ok());
  ASSERT_TRUE(store_->readRevision(revision).ok());
  EXPECT_EQ(revision, 1) << "what failed is no change";
  ASSERT_TRUE(store_->removeObject(id, 1, note_).ok());
  ASSERT_TRUE(store_->readRevision(revision).ok());
  EXPECT_EQ(revision, 2);
}

TEST_F(PolicyContract, WritesDownWhoDidWhatAndWhen) {
  const std::uint32_t id = add(objectOf(1, kStamp, "legal"));
  note_ = {std::string("root\0x", 6), 2000};
  ASSERT_TRUE(store_->removeObject(id, 1, note_).ok());
  std::vector<AuditRecord> records;
  ASSERT_TRUE(store_->listAudit(0, 10, records).ok());
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].what, "add stamp 'legal' (1)");
  EXPECT_EQ(records[0].actor, "admin");
  EXPECT_EQ(records[0].at, 1000);
  EXPECT_EQ(records[0].revision, 1);
  EXPECT_EQ(records[1].what, "remove stamp 'legal' (1)");
  EXPECT_EQ(records[1].actor, note_.actor);
  EXPECT_EQ(records[1].at, 2000);
  std::vector<AuditRecord> rest;
  ASSERT_TRUE(store_->listAudit(records[0].row, 10, rest).ok());
  EXPECT_EQ(rest, std::vector{records[1]});
  ASSERT_TRUE(store_->listAudit(0, 1, rest).ok());
  EXPECT_EQ(rest, std::vector{records[0]});
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

TEST_F(PolicyContract, KeepsAnObjectThatARuleRefersTo) {
  ASSERT_EQ(replace(sample()), StoreError::None);
  EXPECT_EQ(store_->removeObject(1, 1, note_).error, StoreError::InUse);
  std::vector<RuleName> rules;
  ASSERT_TRUE(store_->listReferrers(1, rules).ok());
  EXPECT_EQ(rules, (std::vector<RuleName>{{10, "rule 10"}}));
  ASSERT_TRUE(store_->listReferrers(2, rules).ok());
  EXPECT_TRUE(rules.empty());
  PolicyRecord next = policy();
  next.rules.erase(next.rules.begin());
  ASSERT_EQ(replace(next), StoreError::None);
  EXPECT_TRUE(store_->removeObject(1, 1, note_).ok());
}

TEST_F(PolicyContract, FindsAnObjectByItsName) {
  const std::string name("'; --\0\xFF", 7);
  const std::uint32_t id = add(objectOf(1, kStamp, name));
  add(objectOf(2, kStamp, name));
  add(objectOf(1, kNotification, name));
  std::uint32_t found = 99;
  ASSERT_TRUE(store_->findObjectNamed(1, kStamp, name, found).ok());
  EXPECT_EQ(found, id);
  found = 99;
  for (const std::string& other : {std::string("'; --"), std::string(), name + "x"}) {
    EXPECT_EQ(store_->findObjectNamed(1, kStamp, other, found).error, StoreError::NotFound);
  }
  EXPECT_EQ(store_->findObjectNamed(3, kStamp, name, found).error, StoreError::NotFound);
  EXPECT_EQ(found, 99u);
}

TEST_F(PolicyContract, IsSoundAfterEveryChange) {
  const auto faults = [&] {
    std::vector<std::string> found = {"left as it was"};
    const StoreStatus status = store_->check(found);
    EXPECT_TRUE(status.ok()) << status.text;
    return found;
  };
  EXPECT_TRUE(faults().empty());
  ASSERT_EQ(replace(sample()), StoreError::None);
  EXPECT_TRUE(faults().empty());
  const std::uint32_t id = add(objectOf(UINT32_MAX, kStamp, "'; --", std::string(3, '\0')));
  EXPECT_TRUE(faults().empty());
  ASSERT_TRUE(store_->removeObject(id, UINT32_MAX, note_).ok());
  PolicyRecord next = policy();
  next.rules.pop_back();
  next.rules[0].order = 0;
  ASSERT_EQ(replace(next), StoreError::None);
  EXPECT_TRUE(faults().empty());
}

}  // namespace
