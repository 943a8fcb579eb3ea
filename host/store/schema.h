// The tables of the store, and how older ones are brought up to date.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "host/store/connection.h"

namespace host::store {

/// The steps from one version of the tables to the next; step n makes version n + 1. A step never
/// changes once it was released: stores in the field went through it. What Dialect names stands for
/// the words of each database; a step may have texts for one of them only.
using SchemaStep = std::vector<std::string_view>;
std::span<const SchemaStep> schemaSteps();

/// Why a store cannot be opened that nobody has made.
inline constexpr char kMissingStore[] = "there is no store; kavi store init makes it";

/// The version of the tables behind \p connection; 0 when there are none at all.
/// \throw StoreFailure TooNew when it is beyond the last of \p steps, Damaged when the tables are
///   another program's
std::int64_t versionOf(Connection& connection, std::span<const SchemaStep> steps);

/// Whether the tables behind \p connection are of the last step, while others may make them.
/// \throw StoreFailure as versionOf
bool isNewest(Connection& connection, std::span<const SchemaStep> steps);

/// \throw StoreFailure Unavailable unless the tables behind \p connection are of the last step
void requireNewest(Connection& connection, std::span<const SchemaStep> steps);

/// Brings the store behind \p connection to the version of the last step, in one transaction.
/// \throw StoreFailure TooNew when it is further already, Damaged when it holds something else
void migrate(Connection& connection, std::span<const SchemaStep> steps);

}  // namespace host::store
