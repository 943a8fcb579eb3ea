// The rules, and what changed in them.
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "host/store/object_columns.h"
#include "host/store/policy_change.h"
#include "host/store/policy_difference.h"
#include "host/store/sql_store.h"
#include "host/store/sql_support.h"
#include "host/store/sql_texts.h"

namespace host::store {

namespace {

constexpr char kPolicyChange[] = "changing the policy";
constexpr char kPolicyRead[] = "reading the policy";

[[noreturn]] void damaged(const char* what) { throw StoreFailure(StoreError::Damaged, what); }

// One of the numbers from 0 to that of `last`, the last of its kind.
template <class Kind>
Kind kindOf(const Query& query, int column, Kind last) {
  const std::int64_t number = query.number(column);
  if (number < 0 || number > static_cast<std::int64_t>(last)) damaged("a rule of an unknown kind");
  return static_cast<Kind>(number);
}

RuleRecord readRule(const Query& query) {
  RuleRecord rule;
  rule.id = numberOf<std::uint32_t>(query, 0);
  rule.name = query.bytes(1);
  rule.order = numberOf<std::uint32_t>(query, 2);
  rule.enabled = query.number(3) != 0;
  rule.condition = query.bytes(4);
  rule.onFailure = kindOf(query, 5, OnFailure::Accept);
  rule.verdict.kind = kindOf(query, 6, RuleVerdict::Kind::TempFail);
  // Rules of a store that was made before there were verdicts have none.
  if (!query.isNull(7)) rule.verdict.text = query.bytes(7);
  return rule;
}

std::vector<RuleRecord> readRules(Query& query) {
  std::vector<RuleRecord> rules;
  while (query.next()) rules.push_back(readRule(query));
  return rules;
}

// The action at `position`, counted from 1, of the rule `id`.
ActionRecord& actionAt(std::unordered_map<std::int64_t, RuleRecord*>& rules, std::int64_t id,
                       std::int64_t position) {
  const auto rule = rules.find(id);
  if (rule == rules.end()) damaged("an action without its rule");
  std::vector<ActionRecord>& actions = rule->second->actions;
  if (position < 1 || position > static_cast<std::int64_t>(actions.size())) {
    damaged("an action out of its place");
  }
  return actions[static_cast<std::size_t>(position) - 1];
}

// Gives the rules what two queries select of them: the actions, and the objects of these.
void readActions(Query& actions, Query& objects, std::vector<RuleRecord>& rules) {
  std::unordered_map<std::int64_t, RuleRecord*> byId;
  for (RuleRecord& rule : rules) byId.emplace(rule.id, &rule);
  while (actions.next()) {
    const auto rule = byId.find(actions.number(0));
    if (rule == byId.end()) damaged("an action without its rule");
    rule->second->actions.push_back({numberOf<int>(actions, 2), actions.bytes(3), {}});
    actionAt(byId, actions.number(0), actions.number(1));
  }
  while (objects.next()) {
    ActionRecord& action = actionAt(byId, objects.number(0), objects.number(1));
    action.objects.push_back(numberOf<std::uint32_t>(objects, 2));
  }
}

void readState(Connection& connection, PolicyRecord& policy) {
  Query query(connection, sql::kReadState);
  if (!query.next()) damaged("the policy's revision is missing");
  policy.revision = query.number(0);
  policy.lastObjectId = numberOf<std::uint32_t>(query, 1);
}

PolicyRecord readWhole(Connection& connection) {
  PolicyRecord policy;
  readState(connection, policy);
  Query objects(connection, sql::kReadObjects);
  while (objects.next()) policy.objects.push_back(readObject(objects, ObjectContent::Read));
  Query rules(connection, sql::kReadRules);
  policy.rules = readRules(rules);
  Query actions(connection, sql::kReadActions);
  Query references(connection, sql::kReadRuleObjects);
  readActions(actions, references, policy.rules);
  return policy;
}

// The rules that `selected` selects, which stand in a row, and what belongs to them.
PolicyRecord readPart(Connection& connection, Query& selected) {
  PolicyRecord part;
  readState(connection, part);
  part.rules = readRules(selected);
  if (part.rules.empty()) return part;
  const std::int64_t first = part.rules.front().order;
  const std::int64_t last = part.rules.back().order;
  Query actions(connection, sql::kListActions);
  Query references(connection, sql::kListRuleObjects);
  actions.bind(first).bind(last);
  references.bind(first).bind(last);
  readActions(actions, references, part.rules);
  Query objects(connection, sql::kListReferred);
  objects.bind(first).bind(last);
  while (objects.next()) part.objects.push_back(readObject(objects, ObjectContent::Leave));
  return part;
}

std::int64_t positionOf(Connection& connection, std::uint32_t rule) {
  Query query(connection, sql::kFindRule);
  query.bind(std::int64_t{rule});
  if (!query.next()) throw StoreFailure(StoreError::NotFound, "rule " + std::to_string(rule));
  return readRule(query).order;
}

// The order matters: a rule goes before what it refers to, and comes after it.
void applyInOrder(const PolicyDifference& difference, PolicyChange& change) {
  for (const RuleRecord* rule : difference.removedRules) change.removeRule(*rule);
  for (const RuleRecord* rule : difference.replacedRules) change.replaceRule(*rule);
  for (const ObjectRecord* object : difference.removedObjects) change.removeObject(*object);
  std::unordered_set<std::string_view> wanted;
  for (const ObjectRecord* object : difference.changedObjects) wanted.insert(object->name);
  for (const ObjectRecord* object : difference.addedObjects) wanted.insert(object->name);
  for (const ObjectRecord* object : difference.renamedObjects) change.freeName(*object, wanted);
  for (const ObjectRecord* object : difference.changedObjects) change.changeObject(*object);
  for (const ObjectRecord* object : difference.addedObjects) change.addObject(*object);
  for (const RuleRecord* rule : difference.writtenRules) change.addRule(*rule);
}

// The difference was taken from the store as it stands, so that every step of it can be done.
void apply(const PolicyDifference& difference, PolicyChange& change) {
  try {
    applyInOrder(difference, change);
  } catch (const StoreFailure& failure) {
    const bool contradicts = failure.error() == StoreError::NotFound ||
                             failure.error() == StoreError::InUse ||
                             failure.error() == StoreError::Conflict;
    if (!contradicts) throw;
    damaged("what was read is not what can be changed");
  }
}

}  // namespace

void requireReadable(Connection& connection) { readWhole(connection); }

StoreStatus SqlStore::readPolicy(PolicyRecord& policy) {
  PolicyRecord found;
  StoreStatus status = run(kPolicyRead, Access::Snapshot,
                           [&](Connection& connection) { found = readWhole(connection); });
  if (status.ok()) policy = std::move(found);
  return status;
}

StoreStatus SqlStore::listRules(const RulePage& page, PolicyRecord& part) {
  constexpr std::int64_t kBeforeAll = -1;
  PolicyRecord found;
  StoreStatus status = run(kPolicyRead, Access::Snapshot, [&](Connection& connection) {
    const std::int64_t after =
        page.afterRule ? positionOf(connection, *page.afterRule) : kBeforeAll;
    Query query(connection, sql::kListRules);
    query.bind(after).bind(limitOf(page.limit));
    found = readPart(connection, query);
  });
  if (status.ok()) part = std::move(found);
  return status;
}

StoreStatus SqlStore::findRule(std::uint32_t id, PolicyRecord& part) {
  PolicyRecord found;
  StoreStatus status = run(kPolicyRead, Access::Snapshot, [&](Connection& connection) {
    Query query(connection, sql::kFindRule);
    query.bind(std::int64_t{id});
    found = readPart(connection, query);
    if (found.rules.empty()) throw StoreFailure(StoreError::NotFound, "rule " + std::to_string(id));
  });
  if (status.ok()) part = std::move(found);
  return status;
}

StoreStatus SqlStore::replacePolicy(const PolicyRecord& policy, const ChangeNote& note,
                                    std::int64_t& revision) {
  PolicyRecord present;
  PolicyDifference difference;
  StoreStatus status = run(kPolicyRead, Access::Snapshot, [&](Connection& connection) {
    present = readWhole(connection);
    if (present.revision != policy.revision) throw StoreFailure(StoreError::Conflict, {});
    difference = differenceOf(present, policy);
  });
  if (!status.ok()) return status;
  std::int64_t reached = present.revision;
  if (!difference.isNone()) {
    status = run(kPolicyChange, Access::Write, [&](Connection& connection) {
      PolicyChange change(connection, note);
      // The difference holds only for what was read.
      if (change.revision() != present.revision + 1) throw StoreFailure(StoreError::Conflict, {});
      apply(difference, change);
      reached = change.revision();
    });
  }
  if (status.ok()) revision = reached;
  return status;
}

StoreStatus SqlStore::readRevision(std::int64_t& revision) {
  return run(kPolicyRead, Access::Single, [&](Connection& connection) {
    Query query(connection, sql::kReadState);
    if (!query.next()) damaged("the policy's revision is missing");
    revision = query.number(0);
  });
}

StoreStatus SqlStore::listAudit(std::int64_t afterRow, std::size_t limit,
                                std::vector<AuditRecord>& records) {
  return run(kPolicyRead, Access::Single, [&](Connection& connection) {
    Query query(connection, sql::kListAudit);
    query.bind(afterRow).bind(limitOf(limit));
    std::vector<AuditRecord> found;
    while (query.next()) {
      found.push_back(
          {query.number(0), query.number(1), query.number(2), query.bytes(3), query.bytes(4)});
    }
    records.swap(found);
  });
}

}  // namespace host::store
