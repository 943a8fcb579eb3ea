#include <algorithm>
#include <new>
#include <string_view>

#include "host/core/text_escape.h"
#include "host/store/postgres_store.h"
#include "host/store/sqlite_store.h"
#include "host/store/store.h"
#include "host/store/store_failure.h"

namespace host::store {

namespace {

constexpr std::string_view kSqlitePrefix = "sqlite:";
constexpr std::string_view kPostgresPrefixes[] = {"postgresql://", "postgres://"};

bool isPostgres(const std::string& location) {
  return std::any_of(
      std::begin(kPostgresPrefixes), std::end(kPostgresPrefixes),
      [&](std::string_view prefix) { return location.compare(0, prefix.size(), prefix) == 0; });
}

}  // namespace

std::unique_ptr<Database> makeStore(const std::string& location, StoreStatus& status) {
  try {
    status = {};
    if (location.compare(0, kSqlitePrefix.size(), kSqlitePrefix) == 0 &&
        location.size() > kSqlitePrefix.size()) {
      return std::make_unique<SqliteStore>(location.substr(kSqlitePrefix.size()));
    }
    if (isPostgres(location)) return std::make_unique<PostgresStore>(location);
    status.error = StoreError::InvalidArgument;
    status.text = "'" + core::printable(location) +
                  "' names no store; write sqlite:PATH or postgresql://USER@HOST/DATABASE";
  } catch (const StoreFailure& failure) {
    // The text may hold a password.
    status.error = failure.error();
    status.text = std::string("the location of the store: ") + failure.what() +
                  "; write sqlite:PATH or postgresql://USER@HOST/DATABASE";
  } catch (const std::bad_alloc&) {
    status.error = StoreError::OutOfMemory;
  }
  return nullptr;
}

}  // namespace host::store
