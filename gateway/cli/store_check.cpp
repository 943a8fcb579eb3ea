#include "gateway/cli/store_check.h"

#include <algorithm>

#include "gateway/policy/action_registry.h"
#include "gateway/policy/diagnostics.h"
#include "gateway/policy/policy_records.h"
#include "gateway/policy/snapshot.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

using host::store::ActionRecord;
using host::store::RuleRecord;

/// Whether the store knows the objects that the action refers to: it keeps them from being removed.
bool isKnownToRefer(const ActionRecord& action) {
  const policy::ActionSpec* spec = policy::findAction(action.type);
  const std::vector<unsigned int> ids =
      spec != nullptr ? spec->objectIds(action.setting) : std::vector<unsigned int>();
  return std::equal(ids.begin(), ids.end(), action.objects.begin(), action.objects.end());
}

void addWrongReferences(const RuleRecord& rule, std::vector<std::string>& faults) {
  for (std::size_t i = 0; i < rule.actions.size(); ++i) {
    if (isKnownToRefer(rule.actions[i])) continue;
    faults.push_back("rule " + std::to_string(rule.id) + ": action " + std::to_string(i + 1) +
                     " refers to other objects than the store has written down, which are the ones "
                     "that it keeps from being removed");
  }
}

}  // namespace

std::vector<std::string> policyFaults(const host::store::PolicyRecord& policy) {
  // A gateway compiles the policy in the same way.
  policy::Diagnostics diagnostics("");
  policy::Snapshot::build(policy::rowsOf(policy), diagnostics);
  std::vector<std::string> faults;
  for (const policy::Diagnostic& found : diagnostics.all()) {
    const std::string place = found.rule.empty() ? found.rule : found.rule + ": ";
    faults.push_back(host::core::printable(place + found.message));
  }
  if (diagnostics.errorCount() + diagnostics.warningCount() > faults.size()) {
    faults.push_back("and more of the same");
  }
  for (const RuleRecord& rule : policy.rules) addWrongReferences(rule, faults);
  return faults;
}

}  // namespace gateway::cli
