// `kavi quarantine` and `kavi archive`: the messages that were put aside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/store/message_index.h"

namespace gateway::cli {

/// What these commands have in common.
struct FiledOptions {
  host::store::MessageKind kind = host::store::MessageKind::Quarantined;  ///< or Archived
  std::string config;  ///< settings file; empty for none
  std::string state;   ///< the state folder, instead of that of the settings
  bool json = false;
};

/// Which messages a list shows.
struct FiledPage {
  std::optional<std::string> area;
  std::string match;       ///< in subject, sender, a recipient or message id; letters in any case
  std::int64_t after = 0;  ///< the last number of the page before
  std::size_t limit = 100;
};

/// Whom a released message goes to.
struct ReleaseOptions {
  std::vector<std::int64_t> rows;
  std::optional<std::string> from;      ///< instead of the sender that it had
  std::vector<std::string> recipients;  ///< instead of those that it had
  bool isUnscanned = false;
  bool keep = false;  ///< the stored copy stays
};

// Each returns the exit status: 1 when something could not be read or done.

/// `list`: the messages, those that came first in front.
int filedListCommand(const FiledOptions& options, const FiledPage& page);

/// `show NUMBER`. \param message  prints the message instead, as it lies there
int filedShowCommand(const FiledOptions& options, std::int64_t row, bool message);

/// `release NUMBER…`: puts them into the spool, and removes what is stored of quarantined ones.
int filedReleaseCommand(const FiledOptions& options, const ReleaseOptions& release);

/// `delete NUMBER…`: removes messages for good, once the person at the terminal agreed.
/// \param yes  asks nobody
int filedDeleteCommand(const FiledOptions& options, const std::vector<std::int64_t>& rows,
                       bool yes);

/// `purge`: removes the messages whose days are over.
/// \param dryRun  only says which
int filedPurgeCommand(const FiledOptions& options, bool dryRun);

}  // namespace gateway::cli
