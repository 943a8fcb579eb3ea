// Traps on the wire.
#pragma once

#include <string>
#include <vector>

#include "host/trap/trap_error.h"
#include "library/platform/trap.h"

namespace host::trap {

/// Sends \p trap to \p peer ("udp:192.0.2.1:162") in one packet. Any thread.
///
/// SNMPv1 (RFC 1157 section 4.1.6): the enterprise is \p enterprise, the generic trap 6, the
/// specific trap the trap's type. SNMPv2c (RFC 3416 section 4.2.6): sysUpTime and snmpTrapOID, the
/// enterprise with 0 and the type behind it (RFC 3584 section 3.1). In both, the one variable is
/// the enterprise with 1 behind it, the text as an octet string.
TrapError sendTrapTo(const std::string& peer, const std::vector<unsigned long>& enterprise,
                     const KaviTrapInfo& trap);

}  // namespace host::trap
