// The subcommands of `kavi` on the command line; each has a file of its own.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace gateway::cli {

/// Does what the command line asks for. \return the exit status
using Chosen = std::function<int()>;

inline constexpr char kConfigHelp[] = "Global settings, an INI file";
inline constexpr char kJsonHelp[] = "As JSON";

// Each adds its subcommands, with their options and examples, to `app`. Parsing puts the one that
// is meant into `chosen`, which outlives it.

void addRunCommand(CLI::App& app, Chosen& chosen);
void addMessageCommands(CLI::App& app, Chosen& chosen);  ///< expand, notify
void addPolicyCommands(CLI::App& app, Chosen& chosen);
void addLookupCommands(CLI::App& app, Chosen& chosen);  ///< actions, tokens, setting
void addSpoolCommands(CLI::App& app, Chosen& chosen);

}  // namespace gateway::cli
