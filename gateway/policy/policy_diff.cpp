#include "gateway/policy/policy_diff.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <utility>

#include "gateway/policy/named_objects.h"
#include "gateway/policy/policy_entries.h"
#include "gateway/policy/policy_records.h"
#include "gateway/policy/rule_orders.h"

namespace gateway::policy {
namespace {

using host::store::ObjectRecord;
using host::store::PolicyRecord;
using host::store::RuleRecord;
using Kind = PolicyChange::Kind;

template <class Record>
std::unordered_map<std::uint32_t, const Record*> byId(const std::vector<Record>& records) {
  std::unordered_map<std::uint32_t, const Record*> found;
  for (const Record& record : records) found.emplace(record.id, &record);
  return found;
}

/// Whether the rules are the same but for where they stand.
bool sameButOrder(const RuleRecord& left, const RuleRecord& right) {
  RuleRecord moved = right;
  moved.order = left.order;
  return left == moved;
}

/// Which rules of \p to run at another place among those that are in \p from, too.
std::vector<bool> findMoved(const std::unordered_map<std::uint32_t, const RuleRecord*>& from,
                            const std::vector<RuleRecord>& to) {
  std::vector<std::optional<std::uint32_t>> places(to.size());
  for (std::size_t i = 0; i < to.size(); ++i) {
    const auto old = from.find(to[i].id);
    if (old != from.end()) places[i] = old->second->order;
  }
  std::vector<bool> moved = longestAscending(places);
  for (std::size_t i = 0; i < to.size(); ++i) moved[i] = places[i].has_value() && !moved[i];
  return moved;
}

}  // namespace

PolicyDiff::PolicyDiff(const PolicyRecord& from, const PolicyRecord& to) {
  compareObjects(from, to);
  compareRules(from, to);
}

void PolicyDiff::compareObjects(const PolicyRecord& from, const PolicyRecord& to) {
  const auto before = byId(from.objects);
  const auto after = byId(to.objects);
  for (const ObjectKind& kind : allObjectKinds()) {
    const auto entry = [&](const ObjectRecord& object) {
      return &entryOf(kind, object.name, object.content, document_);
    };
    for (const ObjectRecord& object : from.objects) {
      if (object.type != kind.type || after.contains(object.id)) continue;
      changes_.push_back(
          {Kind::Removed, kind.word, object.id, object.name, false, entry(object), nullptr});
    }
    for (const ObjectRecord& object : to.objects) {
      if (object.type != kind.type) continue;
      const auto old = before.find(object.id);
      const bool isNew = old == before.end();
      if (!isNew && old->second->name == object.name && old->second->content == object.content) {
        continue;
      }
      changes_.push_back({isNew ? Kind::Added : Kind::Changed, kind.word, object.id, object.name,
                          false, isNew ? nullptr : entry(*old->second), entry(object)});
    }
  }
}

void PolicyDiff::compareRules(const PolicyRecord& from, const PolicyRecord& to) {
  const auto before = byId(from.rules);
  const auto after = byId(to.rules);
  const PolicyRows oldRows = rowsOf(from);
  const PolicyRows newRows = rowsOf(to);
  const ObjectNames oldNames(oldRows.objects);
  const ObjectNames newNames(newRows.objects);
  std::unordered_map<std::uint32_t, const Node*> oldEntries;
  for (std::size_t i = 0; i < from.rules.size(); ++i) {
    const RuleRecord& rule = from.rules[i];
    const auto next = after.find(rule.id);
    if (next != after.end() && sameButOrder(*next->second, rule)) continue;
    const Node* entry = &ruleEntry(oldRows.rules[i], oldNames, document_);
    oldEntries.emplace(rule.id, entry);
    if (next != after.end()) continue;
    changes_.push_back({Kind::Removed, "rule", rule.id, rule.name, false, entry, nullptr});
  }
  const std::vector<bool> moved = findMoved(before, to.rules);
  for (std::size_t i = 0; i < to.rules.size(); ++i) {
    const RuleRecord& rule = to.rules[i];
    const bool isNew = !before.contains(rule.id);
    const auto old = oldEntries.find(rule.id);
    const bool differs = isNew || old != oldEntries.end();
    if (!differs && !moved[i]) continue;
    const Node* entry = &ruleEntry(newRows.rules[i], newNames, document_);
    changes_.push_back({isNew ? Kind::Added : Kind::Changed, "rule", rule.id, rule.name, moved[i],
                        isNew ? nullptr : (differs ? old->second : entry), entry});
  }
}

std::size_t PolicyDiff::count(Kind kind) const {
  return static_cast<std::size_t>(
      std::count_if(changes_.begin(), changes_.end(),
                    [kind](const PolicyChange& change) { return change.kind == kind; }));
}

}  // namespace gateway::policy
