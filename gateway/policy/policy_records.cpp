#include "gateway/policy/policy_records.h"

#include <algorithm>
#include <limits>
#include <map>
#include <numeric>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "gateway/policy/action_registry.h"
#include "gateway/policy/named_objects.h"
#include "gateway/policy/rule_orders.h"
#include "gateway/policy/suggest.h"

namespace gateway::policy {
namespace {

using host::store::ActionRecord;
using host::store::ObjectRecord;
using host::store::PolicyRecord;
using host::store::RuleRecord;

/// Whether a policy file can name the object.
bool isNameable(const ObjectRecord& object) {
  return object.owner == kPolicyOwner && findObjectKind(object.type) != nullptr;
}

class Converter {
 public:
  Converter(const PolicyRows& rows, const PolicyRecord& present, Diagnostics& diagnostics)
      : rows_(rows), present_(present), diagnostics_(diagnostics) {}

  bool convert(PolicyRecord& record) {
    PolicyRecord made;
    made.revision = present_.revision;
    made.lastObjectId = present_.lastObjectId;
    addObjects(made);
    addRules(made);
    if (failed_) return false;
    record = std::move(made);
    return true;
  }

 private:
  using Name = std::pair<std::uint32_t, std::string_view>;  ///< type and name

  void fail(std::string place, std::string message) {
    failed_ = true;
    diagnostics_.error(0, std::move(place), std::move(message));
  }

  void addObjects(PolicyRecord& record) {
    std::map<Name, const ObjectRecord*> named;
    std::unordered_set<std::uint32_t> gone;
    for (const ObjectRecord& object : present_.objects) {
      if (isNameable(object)) named.emplace(Name(object.type, object.name), &object);
    }
    std::uint32_t last = present_.lastObjectId;
    for (const NamedObjectRow& row : rows_.objects) {
      const auto found = named.find(Name(row.type, row.name));
      ObjectRecord object;
      if (found != named.end()) {
        object = *found->second;
        named.erase(found);
      } else if (last == std::numeric_limits<std::uint32_t>::max()) {
        fail("", "the store has given every id that there is (begin a new store)");
        return;
      } else {
        object.id = ++last;
        object.owner = kPolicyOwner;
        object.type = row.type;
        object.name = row.name;
      }
      object.content = row.setting;
      ids_.emplace(row.id, object.id);
      record.objects.push_back(std::move(object));
    }
    for (const auto& [name, object] : named) {
      if (!object->builtIn) gone.insert(object->id);
    }
    keepOthers(gone, record);
  }

  /// Puts what the rows do not name, and what stays all the same, beside the others.
  void keepOthers(const std::unordered_set<std::uint32_t>& gone, PolicyRecord& record) {
    std::unordered_set<std::uint32_t> there;
    for (const ObjectRecord& object : record.objects) there.insert(object.id);
    for (const ObjectRecord& object : present_.objects) {
      if (!there.contains(object.id) && !gone.contains(object.id)) record.objects.push_back(object);
    }
    std::sort(
        record.objects.begin(), record.objects.end(),
        [](const ObjectRecord& left, const ObjectRecord& right) { return left.id < right.id; });
  }

  void addRules(PolicyRecord& record) {
    std::vector<const RuleRow*> sequence;
    for (const RuleRow& row : rows_.rules) sequence.push_back(&row);
    std::stable_sort(
        sequence.begin(), sequence.end(),
        [](const RuleRow* left, const RuleRow* right) { return left->order < right->order; });
    std::unordered_map<std::uint32_t, std::uint32_t> orders;
    for (const RuleRecord& rule : present_.rules) orders.emplace(rule.id, rule.order);
    std::vector<std::optional<std::uint32_t>> present(sequence.size());
    for (std::size_t i = 0; i < sequence.size(); ++i) {
      const auto order = orders.find(sequence[i]->id);
      if (order != orders.end()) present[i] = order->second;
    }
    const std::vector<std::uint32_t> assigned = assignOrders(present);
    for (std::size_t i = 0; i < sequence.size(); ++i) {
      record.rules.push_back(ruleOf(*sequence[i], assigned[i]));
    }
  }

  RuleRecord ruleOf(const RuleRow& row, std::uint32_t order) {
    RuleRecord rule;
    rule.id = row.id;
    rule.name = row.name;
    rule.order = order;
    rule.enabled = row.enabled;
    rule.condition = row.condition;
    rule.onFailure = row.onFailure;
    rule.verdict = row.verdict;
    for (const ActionRow& action : row.actions) {
      rule.actions.push_back(actionOf(action, "rule " + std::to_string(row.id)));
    }
    return rule;
  }

  ActionRecord actionOf(const ActionRow& row, const std::string& place) {
    ActionRecord action{row.type, row.setting, {}};
    const ActionSpec* spec = findAction(row.type);
    if (spec == nullptr || spec->objectType == 0) return action;
    bool changed = false;
    for (const unsigned int id : spec->objectIds(row.setting)) {
      const auto stored = ids_.find(id);
      if (stored == ids_.end()) {
        fail(place, "action '" + std::string(spec->name) + "' refers to the object " +
                        std::to_string(id) + ", which is missing");
        return action;
      }
      action.objects.push_back(stored->second);
      changed = changed || stored->second != id;
    }
    if (changed && !encodeIds(*spec, action.objects, action.setting)) {
      fail(place, "action '" + std::string(spec->name) + "' cannot be given its ids");
    }
    return action;
  }

  /// The settings string of \p ids, through the administration side's class.
  static bool encodeIds(const ActionSpec& spec, const std::vector<std::uint32_t>& ids,
                        std::string& setting) {
    Document document;
    Node& list = document.add(Node::Kind::List, 0);
    for (const std::uint32_t id : ids) {
      list.items.push_back(&document.addValue(std::to_string(id)));
    }
    const Node& value = ids.size() == 1 ? *list.items.front() : list;
    return spec.encode(value, setting, [](int, const std::string&) {});
  }

  const PolicyRows& rows_;
  const PolicyRecord& present_;
  Diagnostics& diagnostics_;
  std::unordered_map<unsigned int, std::uint32_t> ids_;  ///< of the rows, in the store
  bool failed_ = false;
};

}  // namespace

PolicyRows rowsOf(const PolicyRecord& record) {
  PolicyRows rows;
  for (const ObjectRecord& object : record.objects) {
    rows.objects.push_back({object.id, object.type, object.name, object.content});
  }
  for (const RuleRecord& rule : record.rules) {
    RuleRow row;
    row.id = rule.id;
    row.name = rule.name;
    row.order = rule.order;
    row.enabled = rule.enabled;
    row.condition = rule.condition;
    row.onFailure = rule.onFailure;
    row.verdict = rule.verdict;
    for (const ActionRecord& action : rule.actions) {
      row.actions.push_back({action.type, action.setting});
    }
    rows.rules.push_back(std::move(row));
  }
  return rows;
}

bool recordOf(const PolicyRows& rows, const PolicyRecord& present, PolicyRecord& record,
              Diagnostics& diagnostics) {
  return Converter(rows, present, diagnostics).convert(record);
}

}  // namespace gateway::policy
