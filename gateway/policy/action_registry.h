// The actions that a policy can name: one row each.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/policy/condition.h"
#include "gateway/policy/node.h"
#include "library/framework/kavi_action.h"

namespace gateway::policy {

/// What the gateway knows about one action. To add an action, add a row in action_registry.cpp.
struct ActionSpec {
  std::string_view name;  ///< the key in a policy, and the word in reports
  KaviAction::ActionType type;
  bool disposes;     ///< a success takes the message out of the stream
  bool doesNothing;  ///< kept for old policies; running it changes nothing
  bool changesMessage;
  std::string_view value;    ///< how its value is written; empty when it takes none
  std::string_view example;  ///< as in a policy
  std::string_view summary;

  /// A fresh scanner-side object, not constructed yet.
  std::unique_ptr<KaviAction> (*make)();
  /// Turns the value of the policy into the settings string, through the administration side's
  /// class. \return false with the reason and remedy handed to \p fault.
  bool (*encode)(const Node& value, std::string& setting, const FaultSink& fault);
  /// Turns a settings string back into the value of the policy. \return false if it is none.
  bool (*decode)(const std::string& setting, std::string& value);
  /// What an administrator may not have meant by \p setting; empty when nothing. May be null.
  std::string (*doubt)(const std::string& setting) = nullptr;
  /// The kind of named object that the value names (KaviNamedObj); 0 for none. `encode` and
  /// `decode` then deal in ids.
  unsigned int objectType = 0;
  bool takesSeveral = false;  ///< the value may be a list of them

  /// A scanner-side object built from \p setting; null when its `construct` refuses that.
  std::unique_ptr<KaviAction> build(const std::string& setting) const;
  /// The ids of the named objects that \p setting refers to.
  std::vector<unsigned int> objectIds(const std::string& setting) const;
  bool takesValue() const { return !value.empty(); }
};

/// All actions, ordered by name.
std::span<const ActionSpec> allActions();

/// Null when there is none.
const ActionSpec* findAction(std::string_view name);
const ActionSpec* findAction(int type);

std::vector<std::string_view> actionNames();

}  // namespace gateway::policy
