// `kavi rule`: the rules of a store, and the named objects that their actions use.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "gateway/cli/store_setup.h"

namespace gateway::cli {

/// What the rule commands have in common.
struct RuleOptions {
  StoreOptions store;
  std::uint32_t rule = 0;  ///< its id, where the command has one
  std::string action;      ///< name, or place in the rule from 1; empty for all
  bool json = false;
};

/// A part of a listing.
struct RulePage {
  std::optional<std::uint32_t> after;  ///< only rules that run behind the one with this id
  std::optional<std::size_t> limit;
};

/// `kavi rule list`: the rules in the order in which they run.
/// \return the exit status, as of all these: 1 when the store or an operation refuses
int ruleListCommand(const RuleOptions& options, const RulePage& page);

/// `kavi rule show ID`: a rule as in a policy, and its settings strings.
int ruleShowCommand(const RuleOptions& options);

/// `kavi rule bindings ID [ACTION]`: the objects that the rule's actions use.
int ruleBindingsCommand(const RuleOptions& options);

/// `kavi rule bind ID ACTION OBJECT…`: lets the action use these and nothing else.
/// \param objects  ids or names
int ruleBindCommand(const RuleOptions& options, const std::vector<std::string>& objects);

}  // namespace gateway::cli
