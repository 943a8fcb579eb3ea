#include "tests/fakes/policy_store.h"

#include <algorithm>
#include <utility>

namespace fakes {

using host::store::ActionRecord;
using host::store::AuditRecord;
using host::store::ObjectPage;
using host::store::ObjectRecord;
using host::store::PolicyRecord;
using host::store::RuleName;
using host::store::RulePage;
using host::store::RuleRecord;
using host::store::StoreError;

namespace {

MemoryPolicyStore::Status failed(StoreError error) { return {error, "the store says no"}; }

template <class Records>
auto at(Records& records, std::uint32_t id) {
  return std::find_if(records.begin(), records.end(),
                      [id](const auto& record) { return record.id == id; });
}

std::string describe(const ObjectRecord& object) {
  const char* types[] = {"", "notification", "stamp", "quarantine area", "archive area"};
  return std::string(types[object.type]) + " '" + object.name + "' (" + std::to_string(object.id) +
         ")";
}

std::string describe(const RuleRecord& rule) {
  return "rule " + std::to_string(rule.id) + " '" + rule.name + "'";
}

bool refers(const RuleRecord& rule, std::uint32_t id) {
  for (const ActionRecord& action : rule.actions) {
    if (std::count(action.objects.begin(), action.objects.end(), id) != 0) return true;
  }
  return false;
}

bool hasTwoOfAName(const PolicyRecord& policy) {
  for (const ObjectRecord& one : policy.objects) {
    for (const ObjectRecord& other : policy.objects) {
      if (&one != &other && one.owner == other.owner && one.type == other.type &&
          one.name == other.name) {
        return true;
      }
    }
  }
  return false;
}

template <class Records>
bool hasIds(const Records& records) {
  for (const auto& record : records) {
    const auto same = [&](const auto& other) { return other.id == record.id; };
    if (record.id == 0 || std::count_if(records.begin(), records.end(), same) != 1) return false;
  }
  return true;
}

// Whether everything in `next` fits together, and with what was there.
bool canFollow(const PolicyRecord& next, const PolicyRecord& before) {
  if (!hasIds(next.objects) || !hasIds(next.rules)) return false;
  for (const ObjectRecord& object : next.objects) {
    const auto old = at(before.objects, object.id);
    if (old == before.objects.end()) {
      if (object.id <= before.lastObjectId) return false;
    } else if (old->owner != object.owner || old->type != object.type) {
      return false;
    }
  }
  for (const RuleRecord& rule : next.rules) {
    for (const RuleRecord& other : next.rules) {
      if (&rule != &other && rule.order == other.order) return false;
    }
    for (const ActionRecord& action : rule.actions) {
      for (const std::uint32_t id : action.objects) {
        if (at(next.objects, id) == next.objects.end()) return false;
      }
    }
  }
  return true;
}

}  // namespace

bool MemoryPolicyStore::isReferredTo(std::uint32_t id) const {
  return std::any_of(policy_.rules.begin(), policy_.rules.end(),
                     [id](const RuleRecord& rule) { return refers(rule, id); });
}

MemoryPolicyStore::Status MemoryPolicyStore::commit(PolicyRecord next, const Note& note,
                                                    const std::vector<std::string>& done) {
  if (hasTwoOfAName(next)) return failed(StoreError::NameTaken);
  next.revision = policy_.revision + 1;
  for (const ObjectRecord& object : next.objects) {
    next.lastObjectId = std::max(next.lastObjectId, object.id);
  }
  std::sort(next.objects.begin(), next.objects.end(),
            [](const Object& one, const Object& other) { return one.id < other.id; });
  std::sort(next.rules.begin(), next.rules.end(),
            [](const RuleRecord& one, const RuleRecord& other) { return one.order < other.order; });
  policy_ = std::move(next);
  for (Object& object : policy_.objects) object.inUse = isReferredTo(object.id);
  for (const std::string& what : done) {
    const auto row = static_cast<std::int64_t>(audit_.size()) + 1;
    audit_.push_back({row, policy_.revision, note.now, note.actor, what});
  }
  return {};
}

MemoryPolicyStore::Status MemoryPolicyStore::addObject(const Object& object, const Note& note,
                                                       std::uint32_t& id) {
  if (isOutdated(note)) return failed(StoreError::Conflict);
  PolicyRecord next = policy_;
  Object added = object;
  added.id = policy_.lastObjectId + 1;
  added.createdAt = added.changedAt = note.now;
  next.objects.push_back(added);
  Status status = commit(std::move(next), note, {"add " + describe(added)});
  if (status.ok()) id = added.id;
  return status;
}

MemoryPolicyStore::Status MemoryPolicyStore::changeObject(const Object& object, const Note& note) {
  if (isOutdated(note)) return failed(StoreError::Conflict);
  PolicyRecord next = policy_;
  const auto changed = at(next.objects, object.id);
  if (changed == next.objects.end() || changed->owner != object.owner ||
      changed->type != object.type) {
    return failed(StoreError::NotFound);
  }
  changed->name = object.name;
  changed->content = object.content;
  changed->changedAt = note.now;
  return commit(std::move(next), note, {"change " + describe(object)});
}

MemoryPolicyStore::Status MemoryPolicyStore::removeObject(std::uint32_t id, std::uint32_t owner,
                                                          const Note& note) {
  if (isOutdated(note)) return failed(StoreError::Conflict);
  PolicyRecord next = policy_;
  const auto removed = at(next.objects, id);
  if (removed == next.objects.end()) return failed(StoreError::NotFound);
  if (isReferredTo(id)) return failed(StoreError::InUse);
  if (removed->owner != owner) return failed(StoreError::NotFound);
  const std::string done = "remove " + describe(*removed);
  next.objects.erase(removed);
  return commit(std::move(next), note, {done});
}

MemoryPolicyStore::Status MemoryPolicyStore::findObject(std::uint32_t id, Object& object) {
  const auto found = at(policy_.objects, id);
  if (found == policy_.objects.end()) return failed(StoreError::NotFound);
  object = *found;
  return {};
}

MemoryPolicyStore::Status MemoryPolicyStore::findObjectNamed(std::uint32_t owner,
                                                             std::uint32_t type,
                                                             const std::string& name,
                                                             std::uint32_t& id) {
  for (const Object& object : policy_.objects) {
    if (object.owner != owner || object.type != type || object.name != name) continue;
    id = object.id;
    return {};
  }
  return failed(StoreError::NotFound);
}

MemoryPolicyStore::Status MemoryPolicyStore::listObjects(const ObjectPage& page,
                                                         std::vector<Object>& objects) {
  objects.clear();
  for (const Object& object : policy_.objects) {
    if (object.id <= page.afterId || objects.size() == page.limit) continue;
    if (page.owner.value_or(object.owner) != object.owner) continue;
    if (page.type.value_or(object.type) != object.type) continue;
    objects.push_back(object);
    objects.back().content.clear();
  }
  return {};
}

MemoryPolicyStore::Status MemoryPolicyStore::listReferrers(std::uint32_t id,
                                                           std::vector<RuleName>& rules) {
  rules.clear();
  for (const RuleRecord& rule : policy_.rules) {
    if (refers(rule, id)) rules.push_back({rule.id, rule.name});
  }
  return {};
}

MemoryPolicyStore::Status MemoryPolicyStore::readPolicy(PolicyRecord& policy) {
  policy = policy_;
  return {};
}

PolicyRecord MemoryPolicyStore::partOf(std::size_t first, std::size_t count) const {
  PolicyRecord part;
  part.revision = policy_.revision;
  part.lastObjectId = policy_.lastObjectId;
  for (std::size_t i = first; i < policy_.rules.size() && part.rules.size() < count; ++i) {
    part.rules.push_back(policy_.rules[i]);
  }
  for (const Object& object : policy_.objects) {
    const bool isNeeded =
        std::any_of(part.rules.begin(), part.rules.end(),
                    [&](const RuleRecord& rule) { return refers(rule, object.id); });
    if (!isNeeded) continue;
    part.objects.push_back(object);
    part.objects.back().content.clear();
  }
  return part;
}

MemoryPolicyStore::Status MemoryPolicyStore::listRules(const RulePage& page, PolicyRecord& part) {
  std::size_t first = 0;
  if (page.afterRule) {
    const auto before = at(policy_.rules, *page.afterRule);
    if (before == policy_.rules.end()) return failed(StoreError::NotFound);
    first = static_cast<std::size_t>(before - policy_.rules.begin()) + 1;
  }
  part = partOf(first, page.limit);
  return {};
}

MemoryPolicyStore::Status MemoryPolicyStore::findRule(std::uint32_t id, PolicyRecord& part) {
  const auto rule = at(policy_.rules, id);
  if (rule == policy_.rules.end()) return failed(StoreError::NotFound);
  part = partOf(static_cast<std::size_t>(rule - policy_.rules.begin()), 1);
  return {};
}

MemoryPolicyStore::Status MemoryPolicyStore::replacePolicy(const PolicyRecord& policy,
                                                           const Note& note,
                                                           std::int64_t& revision) {
  if (policy.revision != policy_.revision) return failed(StoreError::Conflict);
  if (hasTwoOfAName(policy)) return failed(StoreError::NameTaken);
  if (!canFollow(policy, policy_)) return failed(StoreError::InvalidArgument);
  PolicyRecord next = policy;
  next.lastObjectId = policy_.lastObjectId;
  std::vector<std::string> done;
  for (const RuleRecord& rule : policy_.rules) {
    if (at(policy.rules, rule.id) == policy.rules.end()) done.push_back("remove " + describe(rule));
  }
  for (const Object& object : policy_.objects) {
    const bool stays = at(policy.objects, object.id) != policy.objects.end();
    if (!stays) done.push_back("remove " + describe(object));
  }
  for (Object& object : next.objects) {
    const auto old = at(policy_.objects, object.id);
    const bool isNew = old == policy_.objects.end();
    const bool same = !isNew && old->name == object.name && old->content == object.content;
    object.createdAt = isNew ? note.now : old->createdAt;
    object.changedAt = same ? old->changedAt : note.now;
    if (!isNew) object.builtIn = old->builtIn;
    if (!isNew && !same) done.push_back("change " + describe(object));
  }
  for (const Object& object : next.objects) {
    if (at(policy_.objects, object.id) == policy_.objects.end()) {
      done.push_back("add " + describe(object));
    }
  }
  for (const RuleRecord& rule : next.rules) {
    const auto old = at(policy_.rules, rule.id);
    if (old == policy_.rules.end() || !(*old == rule)) done.push_back("write " + describe(rule));
  }
  Status status;
  if (!done.empty()) status = commit(std::move(next), note, done);
  if (status.ok()) revision = policy_.revision;
  return status;
}

MemoryPolicyStore::Status MemoryPolicyStore::readRevision(std::int64_t& revision) {
  revision = policy_.revision;
  return {};
}

MemoryPolicyStore::Status MemoryPolicyStore::listAudit(std::int64_t afterRow, std::size_t limit,
                                                       std::vector<AuditRecord>& records) {
  records.clear();
  for (const AuditRecord& record : audit_) {
    if (record.row > afterRow && records.size() < limit) records.push_back(record);
  }
  return {};
}

MemoryPolicyStore::Status MemoryPolicyStore::check(std::vector<std::string>& faults) {
  faults.clear();
  if (!hasIds(policy_.objects) || !hasIds(policy_.rules) || !canFollow(policy_, policy_)) {
    faults.push_back("the policy contradicts itself");
  }
  return {};
}

}  // namespace fakes
