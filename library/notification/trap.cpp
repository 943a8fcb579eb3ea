#include "library/notification/trap.h"

#include "library/namedobj/notify_area.h"
#include "library/notification/notify_settings.h"
#include "library/platform/trap.h"
#include "library/tokens/action_utils.h"

namespace library {

namespace {

constexpr char kTrapOid[] = "1.3.6.1.4.1.99999.141";

}  // namespace

bool wantsTrap(const uiNotifyArea& record) {
  return record.sendTrap && !record.trapMessage.empty();
}

bool sendTrap(const uiNotifyArea& record, const std::string& text) {
  if (!wantsTrap(record)) {
    return true;
  }
  if (g_snmp_server_ip.empty()) {
    ActionUtils::L2("Ignore SNMP Trap due to missing server address.");
    return true;
  }
  const auto version = g_snmp_version == "snmpv2c" ? SNMPTrapVersion::V2c : SNMPTrapVersion::V1;
  KaviTrapInfo trap(g_snmp_server_ip, version, kTrapOid, g_snmp_community_str, record.type);
  trap.setTrapVarValue(text);
  const std::string dump = trap.getDumpStr();
  const int error = SendKaviTrap(trap);
  ActionUtils::L1("send SNMP Trap, ret:%d, trap:%s.", error, dump.c_str());
  if (error == 0) {
    return true;
  }
  const auto code = static_cast<unsigned int>(error);
  if (g_ignore_snmp_error) {
    ActionUtils::L2("Ignore SNMP Trap sending error. (%u)", code);
    return true;
  }
  ActionUtils::L1("Failed to send SNMP Trap, error: %u.", code);
  return false;
}

}  // namespace library
