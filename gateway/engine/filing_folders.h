// The folders that the actions of a policy file messages under.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "gateway/policy/snapshot.h"
#include "host/delivery/delivery_state.h"
#include "library/platform/global_setting.h"

namespace gateway::engine {

/// The folders that were made ready, by their settings.
using ReadyFolders = std::set<std::string>;

/// Opens the folders that \p policy needs and brings them, and the spool, in line with the index.
/// To be called before \p policy is used; may run while messages are filed. \param state  open
/// \param notes  receives what was brought in line, a line each
/// \param ready  those of earlier calls, which are left alone, and then those of this one, too
/// \return what is wrong; empty for success.
std::string prepareFilingFolders(const policy::Snapshot& policy, Kavi::GlobalSetting& settings,
                                 host::delivery::DeliveryState& state,
                                 std::vector<std::string>& notes, ReadyFolders& ready);
/// The same with no earlier calls.
std::string prepareFilingFolders(const policy::Snapshot& policy, Kavi::GlobalSetting& settings,
                                 host::delivery::DeliveryState& state,
                                 std::vector<std::string>& notes);

/// Adds to \p faults what keeps this user from making files in the state folder. Makes nothing.
void checkStateFolder(const std::string& folder, std::vector<std::string>& faults);

/// The same for the folders that \p policy needs.
void checkFilingFolders(const policy::Snapshot& policy, Kavi::GlobalSetting& settings,
                        std::vector<std::string>& faults);

}  // namespace gateway::engine
