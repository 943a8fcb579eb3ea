// `kavi store`: the database of named objects and rules itself.
#pragma once

#include <cstddef>
#include <cstdint>

#include "gateway/cli/store_setup.h"

namespace gateway::cli {

/// `kavi store init`: makes the store; leaves one that is there alone.
/// \return the exit status, as of all these: 1 when the store could not be made or used
int storeInitCommand(const StoreOptions& options, bool json);

/// `kavi store migrate`: brings an older store to this program's version.
int storeMigrateCommand(const StoreOptions& options, bool json);

/// `kavi store check`: looks for damage and for what no gateway could use.
/// \return 1 when there is any, too
int storeCheckCommand(const StoreOptions& options, bool json);

/// One page of a listing.
struct PageOptions {
  std::int64_t after = 0;    ///< the last row of the page before
  std::size_t limit = 1000;  ///< rows
};

/// `kavi store audit`: who changed what, and when; the oldest first.
int storeAuditCommand(const StoreOptions& options, const PageOptions& page, bool json);

}  // namespace gateway::cli
