// A real receiver of SNMP traps.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/unit/host/core/temp_folder.h"

namespace testing_host {

/// What came in, as the receiver shows it.
struct ReceivedTrap {
  std::string enterprise;  ///< ".1.3.6.1...": of SNMPv1 only
  std::string generic;     ///< of SNMPv1, as of the next
  std::string specific;
  std::string security;  ///< "TRAP, SNMP v1, community public"
  std::string variables;

  /// The last octet string among the variables, byte for byte.
  std::string text() const;
};

/// Runs snmptrapd on a free loopback port from construction to destruction.
class SnmpTrapd {
 public:
  SnmpTrapd();
  ~SnmpTrapd();
  SnmpTrapd(const SnmpTrapd&) = delete;
  SnmpTrapd& operator=(const SnmpTrapd&) = delete;

  /// "127.0.0.1:port"
  std::string server() const { return "127.0.0.1:" + std::to_string(port_); }
  /// Waits until \p count more traps have come in, or for some seconds; answers those.
  std::vector<ReceivedTrap> take(std::size_t count);

 private:
  std::string readLine();

  TempFolder folder_;
  pid_t process_ = -1;
  int output_ = -1;
  int port_ = 0;
  std::string pending_;
};

}  // namespace testing_host
