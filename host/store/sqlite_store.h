// The store in one file of its own.
#pragma once

#include <string>

#include "host/core/file_ops.h"
#include "host/store/sql_store.h"

namespace host::store {

struct SqliteOptions {
  int busyTimeoutMs = 10'000;  ///< how long to wait for other processes
  Upkeep upkeep = Upkeep::MakeAndMigrate;
};

/// A SQLite file with a write-ahead log beside it ("-wal", "-shm").
class KAVI_API SqliteStore final : public SqlStore {
 public:
  explicit SqliteStore(const std::string& path, const SqliteOptions& options = {},
                       core::FileOps& ops = core::FileOps::system());
};

}  // namespace host::store
