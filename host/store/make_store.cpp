#include <algorithm>
#include <cctype>
#include <new>
#include <string_view>

#include "host/store/postgres_store.h"
#include "host/store/sqlite_pool.h"
#include "host/store/sqlite_store.h"
#include "host/store/store.h"
#include "host/store/store_failure.h"

namespace host::store {

namespace {

constexpr std::string_view kSqlitePrefix = "sqlite:";
constexpr char kForms[] = "sqlite:PATH or postgresql://USER@HOST/DATABASE";
constexpr std::string_view kPostgresPrefixes[] = {"postgresql://", "postgres://"};

bool isPostgres(const std::string& location) {
  return std::any_of(
      std::begin(kPostgresPrefixes), std::end(kPostgresPrefixes),
      [&](std::string_view prefix) { return location.compare(0, prefix.size(), prefix) == 0; });
}

// What is wrong with a location that is of no known kind. Of the text only its kind is shown: the
// rest may hold a password.
std::string faultOf(const std::string& location) {
  if (location.empty()) return "it is empty";
  const std::size_t colon = location.find(':');
  const bool hasKind = colon != std::string::npos &&
                       std::all_of(location.begin(), location.begin() + static_cast<int>(colon),
                                   [](unsigned char c) { return std::isalnum(c) != 0; });
  if (!hasKind) return "it does not say of what kind it is";
  const std::string kind = location.substr(0, colon + 1);
  if (kind == kSqlitePrefix) return sqlitePathFault(location.substr(colon + 1));
  const bool isServer = kind == "postgresql:" || kind == "postgres:";
  return isServer ? "behind '" + kind + "' stand two slashes"
                  : "'" + kind + "' is no kind of store";
}

}  // namespace

std::unique_ptr<Database> makeStore(const std::string& location, StoreStatus& status,
                                    Upkeep upkeep) {
  try {
    status = {};
    if (location.compare(0, kSqlitePrefix.size(), kSqlitePrefix) == 0 &&
        sqlitePathFault(location.substr(kSqlitePrefix.size())).empty()) {
      SqliteOptions options;
      options.upkeep = upkeep;
      return std::make_unique<SqliteStore>(location.substr(kSqlitePrefix.size()), options);
    }
    if (isPostgres(location)) {
      PostgresOptions options;
      options.upkeep = upkeep;
      return std::make_unique<PostgresStore>(location, options);
    }
    status.error = StoreError::InvalidArgument;
    status.text = "the location of the store: " + faultOf(location) + "; write " + kForms;
  } catch (const StoreFailure& failure) {
    // The text may hold a password.
    status.error = failure.error();
    status.text = std::string("the location of the store: ") + failure.what() + "; write " + kForms;
  } catch (const std::bad_alloc&) {
    status.error = StoreError::OutOfMemory;
  }
  return nullptr;
}

}  // namespace host::store
