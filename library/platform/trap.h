// SNMP traps.
#pragma once

#include <string>

#include "library/platform/api.h"

enum class SNMPTrapVersion : int {
  V1 = 0,   ///< SNMPv1 (RFC 1157)
  V2c = 1,  ///< SNMPv2c (RFC 1901)
};

/// One trap to send. Traps are unconfirmed (UDP): success means that it was handed to the network.
class KAVI_API KaviTrapInfo {
 public:
  /// \param server        host name or address, with an optional ":port" (default 162)
  /// \param oid           enterprise OID in dotted decimals
  /// \param community     empty for "public"
  /// \param specificType  SNMPv1 specific-trap number; SNMPv2c sends it as the last arc of
  ///   snmpTrapOID behind \p oid and 0
  KaviTrapInfo(const std::string& server, SNMPTrapVersion version, const std::string& oid,
               const std::string& community, unsigned long specificType);
  ~KaviTrapInfo();
  KaviTrapInfo(const KaviTrapInfo&) = delete;
  KaviTrapInfo& operator=(const KaviTrapInfo&) = delete;

  /// The text (UTF-8) that the trap's one variable carries.
  void setTrapVarValue(const std::string& value);

  /// The trap in one printable line, for the log.
  std::string getDumpStr() const;

  const std::string& server() const { return server_; }
  SNMPTrapVersion version() const { return version_; }
  const std::string& oid() const { return oid_; }
  const std::string& community() const { return community_; }
  unsigned long specificType() const { return specificType_; }
  const std::string& value() const { return value_; }

 private:
  std::string server_;
  SNMPTrapVersion version_;
  std::string oid_;
  std::string community_;
  unsigned long specificType_;
  std::string value_;
};

/// \return 0 once the trap was handed to the network, otherwise an error code of the sender.
KAVI_API int SendKaviTrap(const KaviTrapInfo& trap);
