// What a policy changes in a store, for people and for programs.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "gateway/cli/terminal.h"
#include "gateway/policy/policy_diff.h"

namespace gateway::cli {

/// Each change with the lines of a policy file that come and go, and how many there are of each
/// kind. Lines of printable text.
std::string textReport(const policy::PolicyDiff& diff, const Style& style);

/// A list of the changes, each with its entries before and after.
nlohmann::ordered_json jsonReport(const policy::PolicyDiff& diff);

/// An entry of a policy as JSON: numbers and flags as such, bytes that are no UTF-8 as addBytes
/// writes them.
nlohmann::ordered_json jsonOf(const policy::Node& node);

}  // namespace gateway::cli
