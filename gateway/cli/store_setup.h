// What the commands that work on a store start with.
#pragma once

#include <memory>
#include <string>

#include "host/store/store.h"
#include "library/platform/global_setting.h"

namespace gateway::cli {

/// Where a command finds its store.
struct StoreOptions {
  std::string location;  ///< "sqlite:PATH", "postgresql://..."; empty: what the settings say
  std::string config;    ///< settings file; empty for none
};

/// Who gives the command, for the list of changes: the user's name, and behind it the one who
/// became that user by way of sudo.
std::string actorName();

/// The store that \p location names, or else key `location` in section `store` of \p settings.
/// It is neither opened nor made. \param upkeep  what happens to it when it is opened
/// \return null after writing the reason to standard error.
std::shared_ptr<host::store::Database> findStore(const std::string& location,
                                                 Kavi::GlobalSetting& settings,
                                                 host::store::Upkeep upkeep);

/// The same store, opened, and from now on the one behind the named-object operations, with
/// actorName() in its list of changes. One that is missing, or older than this program, is refused:
/// `kavi store` makes it and brings it up to date.
/// \return null after writing the reason to standard error.
std::shared_ptr<host::store::Database> openStore(const std::string& location,
                                                 Kavi::GlobalSetting& settings);

/// The same, for commands that need nothing else from the settings file.
/// \return the exit status: ExitUsage when none is named, ExitFailed when it cannot be used, after
/// a
///   complaint; else ExitDone with \p store.
int openStore(const StoreOptions& options, std::shared_ptr<host::store::Database>& store);

}  // namespace gateway::cli
