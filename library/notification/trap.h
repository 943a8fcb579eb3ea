// The SNMP trap of a notification.
#pragma once

#include <string>

class uiNotifyArea;

namespace library {

/// Whether \p record asks for a trap.
bool wantsTrap(const uiNotifyArea& record);

/// Sends the trap of \p record, if it asks for one and a server is set. Traps are unconfirmed: sent
/// is not received.
/// \param text  the record's trap message, its tokens replaced
/// \return false, logged, when a trap could not be sent and the settings do not ignore that.
bool sendTrap(const uiNotifyArea& record, const std::string& text);

}  // namespace library
