// Where a command finds its policy.
#pragma once

#include <string>

#include "gateway/policy/stored_policy.h"
#include "library/platform/global_setting.h"

namespace gateway::cli {

/// A file or a store; with neither, the store that the settings name.
struct PolicyOptions {
  std::string file;
  std::string store;  ///< "sqlite:PATH", "postgresql://..."
};

/// Whether \p options or \p settings name a policy at all.
bool namesPolicy(const PolicyOptions& options, Kavi::GlobalSetting& settings);

/// Loads and compiles it.
/// \return a policy without a snapshot after writing every error to standard error.
policy::StoredPolicy loadPolicy(const PolicyOptions& options, Kavi::GlobalSetting& settings);

}  // namespace gateway::cli
