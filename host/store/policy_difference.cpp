#include "host/store/policy_difference.h"

#include <algorithm>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

#include "host/core/text_escape.h"
#include "host/store/store_failure.h"

namespace host::store {

namespace {

constexpr StoreError kWrong = StoreError::InvalidArgument;

[[noreturn]] void refuse(const std::string& what, StoreError error = kWrong) {
  throw StoreFailure(error, what);
}

std::string nameOf(const ObjectRecord& object) {
  return "object " + std::to_string(object.id) + " '" + core::printable(object.name) + "'";
}

std::string nameOf(const RuleRecord& rule) {
  return "rule " + std::to_string(rule.id) + " '" + core::printable(rule.name) + "'";
}

/// \param error  whose fault it is when they cannot be told apart by their ids
template <class Record>
std::unordered_map<std::uint32_t, const Record*> byId(const std::vector<Record>& records,
                                                      StoreError error = kWrong) {
  std::unordered_map<std::uint32_t, const Record*> found;
  for (const Record& record : records) {
    if (record.id == 0) refuse(nameOf(record) + " has no id", error);
    if (!found.emplace(record.id, &record).second) {
      refuse(nameOf(record) + " stands twice", error);
    }
  }
  return found;
}

void requireNames(const std::vector<ObjectRecord>& objects) {
  std::set<std::tuple<std::uint32_t, std::uint32_t, std::string_view>> names;
  for (const ObjectRecord& object : objects) {
    if (!names.emplace(object.owner, object.type, object.name).second) {
      throw StoreFailure(StoreError::NameTaken, nameOf(object));
    }
  }
}

void requireRules(const PolicyRecord& policy,
                  const std::unordered_map<std::uint32_t, const ObjectRecord*>& objects) {
  std::unordered_set<std::uint32_t> orders;
  for (const RuleRecord& rule : policy.rules) {
    if (!orders.insert(rule.order).second) {
      refuse(nameOf(rule) + " has the place of another rule, " + std::to_string(rule.order));
    }
    for (const ActionRecord& action : rule.actions) {
      for (const std::uint32_t id : action.objects) {
        if (!objects.contains(id)) {
          refuse(nameOf(rule) + " refers to object " + std::to_string(id) + ", which is missing");
        }
      }
    }
  }
}

bool isSame(const ObjectRecord& one, const ObjectRecord& other) {
  return one.name == other.name && one.content == other.content;
}

void compareObjects(const PolicyRecord& from, const PolicyRecord& to, PolicyDifference& found) {
  const auto before = byId(from.objects, StoreError::Damaged);
  const auto after = byId(to.objects);
  for (const ObjectRecord& object : to.objects) {
    const auto old = before.find(object.id);
    if (old == before.end()) {
      if (object.id <= from.lastObjectId)
        refuse(nameOf(object) + " has an id that was given before");
      found.addedObjects.push_back(&object);
      continue;
    }
    if (old->second->owner != object.owner || old->second->type != object.type) {
      refuse(nameOf(object) + " has another owner or type in the store");
    }
    if (isSame(*old->second, object)) continue;
    found.changedObjects.push_back(&object);
    if (old->second->name != object.name) found.renamedObjects.push_back(old->second);
  }
  for (const ObjectRecord& object : from.objects) {
    if (!after.contains(object.id)) found.removedObjects.push_back(&object);
  }
  std::sort(found.addedObjects.begin(), found.addedObjects.end(),
            [](const ObjectRecord* one, const ObjectRecord* other) { return one->id < other->id; });
}

void compareRules(const PolicyRecord& from, const PolicyRecord& to, PolicyDifference& found) {
  const auto before = byId(from.rules, StoreError::Damaged);
  const auto after = byId(to.rules);
  for (const RuleRecord& rule : to.rules) {
    const auto old = before.find(rule.id);
    if (old != before.end() && *old->second == rule) continue;
    found.writtenRules.push_back(&rule);
    if (old != before.end()) found.replacedRules.push_back(old->second);
  }
  for (const RuleRecord& rule : from.rules) {
    if (!after.contains(rule.id)) found.removedRules.push_back(&rule);
  }
}

}  // namespace

bool PolicyDifference::isNone() const {
  return addedObjects.empty() && changedObjects.empty() && removedObjects.empty() &&
         writtenRules.empty() && removedRules.empty();
}

PolicyDifference differenceOf(const PolicyRecord& from, const PolicyRecord& to) {
  requireNames(to.objects);
  requireRules(to, byId(to.objects));
  PolicyDifference found;
  compareObjects(from, to, found);
  compareRules(from, to, found);
  return found;
}

}  // namespace host::store
