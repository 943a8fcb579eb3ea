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
/// \param folder  where relative names of files in it start from, with its "/" or empty; none when
///   \p text must not name files.
/// \return nothing when there were errors; all of them are in \p diagnostics.
std::optional<LoadedPolicy> loadPolicy(std::string_view text, Diagnostics& diagnostics,
                                       const std::optional<std::string>& folder = std::nullopt);

/// The same for the file at \p path, with its folder; "-" is standard input.
std::optional<LoadedPolicy> loadPolicyFile(const std::string& path, Diagnostics& diagnostics);

}  // namespace gateway::policy
