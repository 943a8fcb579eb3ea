// The store in a PostgreSQL database, for more than one gateway.
#pragma once

#include <chrono>
#include <string>

#include "host/store/sql_store.h"

namespace host::store {

struct PostgresOptions {
  int lockTimeoutMs = 10'000;  ///< how long to wait for others
  Upkeep upkeep = Upkeep::MakeAndMigrate;
  std::chrono::milliseconds patience{60'000};  ///< how long to wait for one answer
};

/// A schema of a PostgreSQL database, version 15 or later; the tables stand in the first schema of
/// the user's search path. A connection that broke is replaced with the next operation.
class KAVI_API PostgresStore final : public SqlStore {
 public:
  /// \param location  "postgresql://..." or any connection string of libpq
  /// \throw StoreFailure when it is none
  explicit PostgresStore(const std::string& location, const PostgresOptions& options = {});
};

}  // namespace host::store
