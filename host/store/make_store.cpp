#include <new>
#include <string_view>

#include "host/core/text_escape.h"
#include "host/store/sqlite_store.h"
#include "host/store/store.h"

namespace host::store {

namespace {

constexpr std::string_view kSqlitePrefix = "sqlite:";

}  // namespace

std::unique_ptr<Database> makeStore(const std::string& location, StoreStatus& status) {
  try {
    status = {};
    if (location.compare(0, kSqlitePrefix.size(), kSqlitePrefix) == 0 &&
        location.size() > kSqlitePrefix.size()) {
      return std::make_unique<SqliteStore>(location.substr(kSqlitePrefix.size()));
    }
    status.error = StoreError::InvalidArgument;
    status.text = "'" + core::printable(location) + "' names no store; write sqlite:PATH";
  } catch (const std::bad_alloc&) {
    status.error = StoreError::OutOfMemory;
  }
  return nullptr;
}

}  // namespace host::store
