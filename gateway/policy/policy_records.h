// A policy's rows as a store's records, and back.
#pragma once

#include "gateway/policy/diagnostics.h"
#include "gateway/policy/rows.h"
#include "host/store/policy_store.h"

namespace gateway::policy {

/// Whose named objects a policy file speaks of. Those of others are left alone.
inline constexpr std::uint32_t kPolicyOwner = 0;

/// The rows of everything in \p record, with the ids and orders of the store. Objects that are not
/// kPolicyOwner's are among them: rules may refer to them.
PolicyRows rowsOf(const host::store::PolicyRecord& record);

/// Makes \p record what \p present becomes when \p rows take the place of its policy. Objects are
/// the same when they have kind and name in common; they keep their ids, and new ones get ids that
/// nobody had. Actions refer to them by those ids. Rules are the same when they have the id in
/// common. What came with the product, objects of other owners and objects of kinds that no policy
/// names stay.
/// \return false when \p rows cannot stand in a store; the faults are in \p diagnostics.
bool recordOf(const PolicyRows& rows, const host::store::PolicyRecord& present,
              host::store::PolicyRecord& record, Diagnostics& diagnostics);

}  // namespace gateway::policy
