#include "host/store/sqlite_store.h"

#include <memory>

#include "host/store/sqlite_pool.h"

namespace host::store {

SqliteStore::SqliteStore(const std::string& path, const SqliteOptions& options, core::FileOps& ops)
    : SqlStore(std::make_unique<SqlitePool>(path, options.busyTimeoutMs, options.upkeep, ops)) {}

}  // namespace host::store
