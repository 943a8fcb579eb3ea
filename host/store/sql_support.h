// What the parts of the SQL store share.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "host/store/connection.h"
#include "host/store/effect_ledger.h"
#include "host/store/store_failure.h"

namespace host::store {

/// A number of rows as every database takes it.
inline std::int64_t limitOf(std::size_t limit) {
  constexpr auto kMost = static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max());
  return static_cast<std::int64_t>(std::min(limit, kMost));
}

/// \throw StoreFailure NotFound for a change of no rows
inline void requireChange(int rows) {
  if (rows == 0) throw StoreFailure(StoreError::NotFound, {});
}

/// Reads all rules and objects. \throw StoreFailure Damaged when they cannot be read
void requireReadable(Connection& connection);

/// The object of that owner, type and name; 0 when there is none.
std::uint32_t findObjectNamed(Connection& connection, std::uint32_t owner, std::uint32_t type,
                              const std::string& name);

/// Marks an effect as done. \throw StoreFailure Conflict when \p owner no longer holds it
void finishHeld(Connection& connection, const EffectKey& key, const std::string& owner,
                const std::string& result);

}  // namespace host::store
