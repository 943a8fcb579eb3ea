// Faults of a stored policy that the store itself cannot know of.
#pragma once

#include <string>
#include <vector>

#include "host/store/policy_store.h"

namespace gateway::cli {

/// What a gateway could not use of \p policy: objects whose record refuses the settings string,
/// conditions that cannot be read, actions that are refused, and references that are none or that
/// the store does not know of. One sentence for each, in the order of the policy.
std::vector<std::string> policyFaults(const host::store::PolicyRecord& policy);

}  // namespace gateway::cli
