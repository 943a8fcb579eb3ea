// A named object as a row of its table.
#pragma once

#include <cstdint>
#include <limits>

#include "host/store/connection.h"
#include "host/store/object_store.h"
#include "host/store/store_failure.h"

namespace host::store {

/// A number of the present row that fits its type. \throw StoreFailure Damaged
template <class Number>
Number numberOf(const Query& query, int column) {
  const std::int64_t number = query.number(column);
  if (number < std::int64_t{std::numeric_limits<Number>::min()} ||
      number > std::int64_t{std::numeric_limits<Number>::max()}) {
    throw StoreFailure(StoreError::Damaged, "a number out of range");
  }
  return static_cast<Number>(number);
}

enum class ObjectContent { Leave, Read };

/// The object of the present row of a query that selects the columns of an object, the content
/// last if it is to be read. \throw StoreFailure Damaged
ObjectRecord readObject(const Query& query, ObjectContent content);

/// The id of the next new object. \throw StoreFailure InvalidArgument when there is none left
std::uint32_t nextObjectId(std::uint32_t lastObjectId);

}  // namespace host::store
