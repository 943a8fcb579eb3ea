// Why a trap was not sent.
#pragma once

namespace host::trap {

/// What `SendKaviTrap` answers. Operators read the numbers in the log (docs/notifications.md), so
/// they never change.
enum class TrapError : int {
  None = 0,
  NoServer = 1,         ///< the server's name is empty
  MalformedServer = 2,  ///< the server is no "host", "host:port" or "[address]:port"
  UnknownHost = 3,      ///< the name has no address
  LookupTimeout = 4,    ///< the name service did not answer in time
  MalformedOid = 5,     ///< the enterprise is no OID
  TypeOutOfRange = 6,   ///< the type does not fit the version's field
  CannotOpen = 7,       ///< no socket to the server's address
  CannotSend = 8,       ///< the network or the size refused the trap
  Internal = 9,         ///< memory, or an exception
};

}  // namespace host::trap
