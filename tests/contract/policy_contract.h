// A store of named objects and rules, for the tests of what each promises.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "library/platform/kavi_named_obj.h"
#include "tests/contract/subjects.h"
#include "tests/unit/host/core/temp_folder.h"

namespace contract {

using namespace host::store;

inline constexpr std::uint32_t kStamp = KaviNamedObj::StampType;
inline constexpr std::uint32_t kNotification = KaviNamedObj::NotificationType;

inline ObjectRecord objectOf(std::uint32_t owner, std::uint32_t type, std::string name,
                             std::string content = "content") {
  ObjectRecord object;
  object.owner = owner;
  object.type = type;
  object.name = std::move(name);
  object.content = std::move(content);
  return object;
}

inline RuleRecord ruleOf(std::uint32_t id, std::uint32_t order, std::vector<ActionRecord> actions) {
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
  // Four rules in the order 40, 10, 30, 20, of which some refer to the stamps 1 to 3.
  PolicyRecord fourRules() {
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

  testing_host::TempFolder temp_;
  std::unique_ptr<PolicyStore> store_ = contract::makePolicyStore(temp_.path());
  ChangeNote note_{"admin", 1000};
};

}  // namespace contract
