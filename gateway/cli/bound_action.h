// An action of a stored rule that uses named objects, as the administration's access takes it.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "gateway/cli/operation_result.h"
#include "gateway/policy/action_registry.h"
#include "host/store/policy_store.h"
#include "library/framework/kavi_action_n.h"
#include "library/namedobj/name_object_access.h"

namespace gateway::cli {

/// Built from the stored settings string, changed by `bind`, and said as one again.
class BoundAction {
 public:
  /// \param place  in the rule, from 0
  /// \return false after a complaint when the action uses no named objects, or refuses its setting
  bool build(const host::store::RuleRecord& rule, std::size_t place);

  OperationResult bindings(std::vector<unsigned int>& ids);
  OperationResult bind(const std::vector<unsigned int>& ids);
  std::string setting() { return action_->serialize(); }

  const policy::ActionSpec& spec() const { return *spec_; }

 private:
  NameObjectAccess access() const;

  const policy::ActionSpec* spec_ = nullptr;
  std::unique_ptr<KaviAction> owner_;
  KaviActionN* action_ = nullptr;
};

/// Whether the action uses named objects.
bool usesObjects(const host::store::ActionRecord& action);

/// The name of an action, or its type code when this program does not know it.
std::string actionWord(const host::store::ActionRecord& action);

/// "rule 15 'executables'".
std::string ruleText(const host::store::RuleRecord& rule);

/// The place of the action that \p word means: its name, or its place from 1.
/// \return one behind the last after a complaint for none, or more than one.
std::size_t findAction(const host::store::RuleRecord& rule, const std::string& word);

}  // namespace gateway::cli
