// What every store of named objects promises, and of the changes in it.
#include "tests/contract/policy_contract.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace contract {

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

}  // namespace contract
