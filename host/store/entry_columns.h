// An entry of the index as a row of its table.
#pragma once

#include <optional>

#include "host/store/connection.h"
#include "host/store/message_index.h"

namespace host::store {

/// Binds every column of \p entry but its row number, in the order of sql::kAddEntry.
/// \throw StoreFailure InvalidArgument for what no row can hold
void bindEntry(Query& query, const IndexEntry& entry);

/// The entry of the present row of a query that selects the index's columns.
/// \throw StoreFailure Damaged
IndexEntry readEntry(const Query& query);

}  // namespace host::store
