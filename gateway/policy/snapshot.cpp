#include "gateway/policy/snapshot.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <unordered_set>
#include <utility>

#include "gateway/policy/suggest.h"

namespace gateway::policy {
namespace {

/// Compiles one rule; nothing when it has a fault.
std::optional<Snapshot::Rule> compileRule(const RuleRow& row, std::size_t index,
                                          const SourceLines& lines, Diagnostics& diagnostics) {
  const std::string place = "rule " + std::to_string(row.id);
  bool usable = row.id != 0;
  if (!usable) diagnostics.error(lines.ofRule(index), place, "a rule id is 1 or above");
  const auto condition = parseCanonicalText(row.condition, [&](int, const std::string& message) {
    diagnostics.error(lines.ofRule(index), place, message);
  });
  std::vector<Snapshot::Action> actions;
  for (std::size_t i = 0; i < row.actions.size(); ++i) {
    const ActionRow& action = row.actions[i];
    const ActionSpec* spec = findAction(action.type);
    if (spec == nullptr) {
      diagnostics.error(lines.ofAction(index, i), place,
                        "unknown action type " + std::to_string(action.type) +
                            " (the policy needs a newer version of this program)");
      usable = false;
    } else if (spec->build(action.setting) == nullptr) {
      diagnostics.error(lines.ofAction(index, i), place,
                        "action '" + std::string(spec->name) + "' refuses its setting " +
                            inQuotes(action.setting));
      usable = false;
    } else {
      actions.push_back({spec, action.setting});
    }
  }
  if (!condition || !usable) return std::nullopt;
  return Snapshot::Rule{row.id, row.name, Matcher(*condition), std::move(actions)};
}

}  // namespace

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
  for (const std::size_t index : order) {
    const RuleRow& row = rows.rules[index];
    if (!ids.insert(row.id).second) {
      diagnostics.error(lines.ofRule(index), "rule " + std::to_string(row.id),
                        "the id stands twice (choose a number never used before)");
      usable = false;
    }
    // Disabled rules are compiled too: a fault must not wait until somebody enables them.
    std::optional<Rule> rule = compileRule(row, index, lines, diagnostics);
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
