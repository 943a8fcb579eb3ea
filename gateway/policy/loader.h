// Reads a policy file into rows.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "gateway/policy/diagnostics.h"
#include "gateway/policy/rows.h"

namespace gateway::policy {

struct LoadedPolicy {
  PolicyRows rows;
  SourceLines lines;
};

/// Reads \p text, checks all of it, and turns every action into its settings string.
/// \return nothing when there were errors; all of them are in \p diagnostics.
std::optional<LoadedPolicy> loadPolicy(std::string_view text, Diagnostics& diagnostics);

/// The same for the file at \p path.
std::optional<LoadedPolicy> loadPolicyFile(const std::string& path, Diagnostics& diagnostics);

}  // namespace gateway::policy
