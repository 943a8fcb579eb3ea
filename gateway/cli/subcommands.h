// The subcommands of `kavi` on the command line; each has a file of its own.
#pragma once

#include <functional>

#include "gateway/cli/policy_setup.h"
#include "gateway/cli/terminal.h"

namespace CLI {
class App;
}

namespace gateway::cli {

/// Does what the command line asks for. \return the exit status
using Chosen = std::function<int()>;

inline constexpr char kConfigHelp[] = "Global settings, an INI file";
inline constexpr char kJsonHelp[] = "As JSON";
inline constexpr char kStoreHelp[] =
    "The store, sqlite:PATH or postgresql://USER@HOST/DATABASE; else location in section store of "
    "the settings";

inline constexpr char kPolicyStoreHelp[] =
    "The store that holds the policy, sqlite:PATH or postgresql://USER@HOST/DATABASE; with "
    "neither, "
    "location in section store of the settings";

/// Adds `--policy`, which \p help explains, and `--store`.
void addPolicySource(CLI::App& command, PolicyOptions& options, const char* help);
/// Adds `--color`.
void addColour(CLI::App& command, Colour& colour);

// Each adds its subcommands, with their options and examples, to `app`. Parsing puts the one that
// is meant into `chosen`, which outlives it.

void addRunCommand(CLI::App& app, Chosen& chosen);
void addMessageCommands(CLI::App& app, Chosen& chosen);  ///< expand, notify
void addPolicyCommands(CLI::App& app, Chosen& chosen);
void addLookupCommands(CLI::App& app, Chosen& chosen);  ///< actions, tokens, setting
void addSpoolCommands(CLI::App& app, Chosen& chosen);
void addFiledCommands(CLI::App& app, Chosen& chosen);  ///< quarantine, archive
void addStoreCommands(CLI::App& app, Chosen& chosen);
void addObjectCommands(CLI::App& app, Chosen& chosen);
void addRuleCommands(CLI::App& app, Chosen& chosen);

}  // namespace gateway::cli
