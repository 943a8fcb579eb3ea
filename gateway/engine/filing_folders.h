// The folders that the actions of a policy file messages under.
#pragma once

#include <string>
#include <vector>

#include "gateway/policy/snapshot.h"
#include "host/delivery/delivery_state.h"
#include "library/platform/global_setting.h"

namespace gateway::engine {

/// Opens the folders that \p policy needs and brings them, and the spool, in line with the index.
/// To be called before \p policy is used; may run while messages are filed. \param state  open
/// \param notes  receives what was brought in line, a line each
/// \return what is wrong; empty for success.
std::string prepareFilingFolders(const policy::Snapshot& policy, Kavi::GlobalSetting& settings,
                                 host::delivery::DeliveryState& state,
                                 std::vector<std::string>& notes);

}  // namespace gateway::engine
