// `kavi policy`: a policy as a file, and in a store.
#pragma once

#include <string>

#include "gateway/cli/policy_setup.h"
#include "gateway/cli/store_setup.h"
#include "gateway/cli/terminal.h"

namespace gateway::cli {

struct PolicyCheckOptions {
  PolicyOptions policy;
  std::string config;  ///< settings file; empty for none
  bool json = false;
};

/// `kavi policy check`: errors and warnings to standard output.
/// \return 0 when the policy can be used, 2 when it cannot.
int policyCheckCommand(const PolicyCheckOptions& options);

/// `kavi policy export`: writes the policy of a store to \p file, whole or not at all; empty for
/// standard output.
/// \return the exit status: 1 when the store cannot be read or no file can say what it holds, or
///   the file cannot be written
int policyExportCommand(const StoreOptions& store, const std::string& file);

struct PolicyApplyOptions {
  std::string file;
  StoreOptions store;
  bool dryRun = false;  ///< shows what would change, and changes nothing
  bool json = false;
  Colour colour = Colour::Auto;
};

/// `kavi policy apply`, and with dryRun `kavi policy diff`: shows what the file changes in the
/// store, then changes all of it or nothing.
/// \return the exit status: 2 when the file has errors, 1 when the store cannot be read or changed
int policyApplyCommand(const PolicyApplyOptions& options);

}  // namespace gateway::cli
