// A policy ready to run.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "gateway/policy/action_registry.h"
#include "gateway/policy/diagnostics.h"
#include "gateway/policy/matcher.h"
#include "gateway/policy/rows.h"

namespace gateway::policy {

/// Rules compiled once, in the order in which they run; disabled ones are left out. Immutable:
/// any number of threads read one snapshot while another takes its place.
class Snapshot {
 public:
  struct Action {
    const ActionSpec* spec = nullptr;  ///< never null
    std::string setting;               ///< accepted by the action's `construct`
  };
  struct Rule {
    unsigned int id = 0;
    std::string name;
    Matcher matcher;
    std::vector<Action> actions;
  };

  /// Compiles \p rows.
  /// \param lines  where the rows came from, for messages
  /// \return null when a row cannot be used; every fault is in \p diagnostics.
  static std::shared_ptr<const Snapshot> build(const PolicyRows& rows, Diagnostics& diagnostics,
                                               const SourceLines& lines = {});

  /// Takes over rules that are compiled already.
  static std::shared_ptr<const Snapshot> of(std::vector<Rule> rules);

  const std::vector<Rule>& rules() const { return rules_; }

 private:
  Snapshot() = default;
  std::vector<Rule> rules_;
};

}  // namespace gateway::policy
