// The policy of a store as the text of a policy file.
#pragma once

#include <optional>
#include <string>

#include "gateway/policy/diagnostics.h"
#include "host/store/policy_store.h"

namespace gateway::policy {

/// The text of a policy file that, applied to a store with \p record in it, changes nothing: each
/// settings string comes back byte for byte. That is tried before it is answered.
/// \return nothing when no file can say the same; the faults are in \p diagnostics.
std::optional<std::string> exportPolicy(const host::store::PolicyRecord& record,
                                        Diagnostics& diagnostics);

}  // namespace gateway::policy
