// The daemon as a whole.
#pragma once

#include <string>

namespace gateway::milter {

/// Exit statuses of the program.
enum ExitStatus : int { ExitDone = 0, ExitFailed = 1, ExitUsage = 2 };

/// Reads the settings at \p config, serves in the foreground until SIGTERM, and finishes what has
/// begun. SIGUSR1 makes it read the policy anew; one with errors leaves the old one in force. What
/// keeps it from starting goes to standard error.
/// \param checkOnly  reads settings and policy, says what is wrong with them, and ends
ExitStatus runDaemon(const std::string& config, bool checkOnly);

}  // namespace gateway::milter
