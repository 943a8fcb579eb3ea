#include "gateway/policy/snapshot.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <unordered_set>
#include <utility>

#include "gateway/policy/named_objects.h"
#include "gateway/policy/rule_options.h"
#include "gateway/policy/suggest.h"

namespace gateway::policy {
namespace {

/// Compiles one action; nothing when it has a fault, whose text is then in \p fault.
std::optional<Snapshot::Action> compileAction(const ActionRow& row, const Snapshot& objects,
                                              std::string& fault) {
  const ActionSpec* spec = findAction(row.type);
  if (spec == nullptr) {
    fault = "unknown action type " + std::to_string(row.type) +
            " (the policy needs a newer version of this program)";
    return std::nullopt;
  }
  const std::string called = "action '" + std::string(spec->name) + "' ";
  if (spec->build(row.setting) == nullptr) {
    fault = called + "refuses its setting " + inQuotes(row.setting);
    return std::nullopt;
  }
  Snapshot::Action action{spec, row.setting, {}, spec->objectIds(row.setting)};
  if (spec->objectType == 0) {
    spec->decode(row.setting, action.value);
    return action;
  }
  for (const unsigned int id : action.objects) {
    const Snapshot::Object* object = objects.findObject(id);
    if (object == nullptr || object->type != spec->objectType) {
      fault = called + "refers to the object " + std::to_string(id) + ", which is no " +
              std::string(findObjectKind(spec->objectType)->word);
      return std::nullopt;
    }
    if (!action.value.empty()) action.value += ", ";
    action.value += object->name;
  }
  return action;
}

/// Compiles one rule; nothing when it has a fault.
std::optional<Snapshot::Rule> compileRule(const RuleRow& row, std::size_t index,
                                          const SourceLines& lines, const Snapshot& objects,
                                          Diagnostics& diagnostics) {
  const std::string place = "rule " + std::to_string(row.id);
  bool usable = row.id != 0;
  if (!usable) diagnostics.error(lines.ofRule(index), place, "a rule id is 1 or above");
  const auto condition = parseCanonicalText(row.condition, [&](int, const std::string& message) {
    diagnostics.error(lines.ofRule(index), place, message);
  });
  if (const std::string fault = verdictFault(row.verdict); !fault.empty()) {
    diagnostics.error(lines.ofRule(index), place, fault);
    usable = false;
  }
  std::vector<Snapshot::Action> actions;
  for (std::size_t i = 0; i < row.actions.size(); ++i) {
    std::string fault;
    if (auto action = compileAction(row.actions[i], objects, fault)) {
      actions.push_back(std::move(*action));
    } else {
      diagnostics.error(lines.ofAction(index, i), place, fault);
      usable = false;
    }
  }
  if (!condition || !usable) return std::nullopt;
  return Snapshot::Rule{row.id,        row.name,   Matcher(*condition), std::move(actions),
                        row.onFailure, row.verdict};
}

}  // namespace

bool Snapshot::addObject(const NamedObjectRow& row, int line, Diagnostics& diagnostics) {
  const ObjectKind* kind = findObjectKind(row.type);
  if (kind == nullptr || row.id == 0 || kind->build(row.setting) == nullptr) {
    // A store takes whatever it is given. As long as no rule needs it, mail is none the worse.
    diagnostics.warning(line, "",
                        "the object " + std::to_string(row.id) + " of type " +
                            std::to_string(row.type) + ", " + inQuotes(row.name) +
                            ", cannot be built from " + inQuotes(row.setting) +
                            " (correct it, or remove it; rules cannot use it)");
    return true;
  }
  if (!objects_.emplace(row.id, Object{row.type, row.name, row.setting}).second) {
    diagnostics.error(line, "", "the object id " + std::to_string(row.id) + " stands twice");
    return false;
  }
  return true;
}

const Snapshot::Object* Snapshot::findObject(unsigned int id) const {
  const auto object = objects_.find(id);
  return object == objects_.end() ? nullptr : &object->second;
}

std::shared_ptr<const Snapshot> Snapshot::build(const PolicyRows& rows, Diagnostics& diagnostics,
                                                const SourceLines& lines) {
  std::vector<std::size_t> order(rows.rules.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&rows](std::size_t left, std::size_t right) {
    return rows.rules[left].order < rows.rules[right].order;
  });
  std::shared_ptr<Snapshot> snapshot(new Snapshot());
  std::unordered_set<unsigned int> ids;
  bool usable = true;
  for (std::size_t i = 0; i < rows.objects.size(); ++i) {
    usable = snapshot->addObject(rows.objects[i], lines.ofObject(i), diagnostics) && usable;
  }
  for (const std::size_t index : order) {
    const RuleRow& row = rows.rules[index];
    if (!ids.insert(row.id).second) {
      diagnostics.error(lines.ofRule(index), "rule " + std::to_string(row.id),
                        "the id stands twice (choose a number never used before)");
      usable = false;
    }
    // Disabled rules are compiled too: a fault must not wait until somebody enables them.
    std::optional<Rule> rule = compileRule(row, index, lines, *snapshot, diagnostics);
    usable = usable && rule.has_value();
    if (rule && row.enabled) snapshot->rules_.push_back(std::move(*rule));
  }
  if (!usable) return nullptr;
  return snapshot;
}

std::shared_ptr<const Snapshot> Snapshot::of(std::vector<Rule> rules) {
  std::shared_ptr<Snapshot> snapshot(new Snapshot());
  snapshot->rules_ = std::move(rules);
  return snapshot;
}

}  // namespace gateway::policy
