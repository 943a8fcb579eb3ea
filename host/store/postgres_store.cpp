#include "host/store/postgres_store.h"

#include <memory>

#include "host/store/postgres_pool.h"

namespace host::store {

PostgresStore::PostgresStore(const std::string& location, const PostgresOptions& options)
    : SqlStore(std::make_unique<PostgresPool>(location, options)) {}

}  // namespace host::store
