// `kavi spool`: what waits to be sent, and what could not be.
#pragma once

#include <string>
#include <vector>

namespace gateway::cli {

/// What --state is, for every command that has it.
inline constexpr char kStateHelp[] =
    "The folder of the spool; else state_folder in section delivery of the settings, or "
    "/var/lib/kavi";

/// What the spool commands have in common.
struct SpoolOptions {
  std::string config;  ///< settings file; empty for none
  std::string state;   ///< the state folder, instead of that of the settings
  bool json = false;
};

/// `kavi spool list`: every message in the spool, the oldest first; files that cannot be read too.
/// \return the exit status: 1 when one of them cannot be read.
int spoolListCommand(const SpoolOptions& options);

/// `kavi spool show ID`: envelope and log of a message.
/// \param message  prints the message instead, as it lies there
int spoolShowCommand(const SpoolOptions& options, const std::string& id, bool message);

/// `kavi spool retry ID…`: makes messages due at once.
/// \param all  all that are there
int spoolRetryCommand(const SpoolOptions& options, const std::vector<std::string>& ids, bool all);

/// `kavi spool delete ID…`: removes messages for good, once the person at the terminal agreed.
/// \param yes  asks nobody
int spoolDeleteCommand(const SpoolOptions& options, const std::vector<std::string>& ids, bool yes);

/// `kavi spool send`: sends what is due, once.
/// \return the exit status: 3 when not all of that was sent.
int spoolSendCommand(const SpoolOptions& options, bool verbose);

}  // namespace gateway::cli
