// Where traps go: a server's name, and its address.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "host/trap/trap_error.h"
#include "library/platform/api.h"

namespace host::trap {

struct TrapServer {
  std::string host;  ///< a name, or an address without brackets
  std::string port = "162";
};

/// Reads "host", "host:port", "address", "[IPv6]" or "[IPv6]:port".
/// \return nothing when it is none of these; \p text must not be empty.
KAVI_API std::optional<TrapServer> parseTrapServer(std::string_view text);

/// How long a name service may take. A worker that waits for one holds up its message.
inline constexpr std::chrono::milliseconds kLookupLimit{3000};

/// Finds the address of a host, in numbers; "" when it has none. May take its time.
using HostLookup = std::function<std::string(const std::string& host)>;
std::string lookUpHost(const std::string& host);

/// Finds the address of \p server. A name is looked up on a thread of its own, which is left to
/// itself when it takes longer than \p limit; while several such are under way, further names are
/// not looked up. Any thread.
/// \param address  receives the peer as Net-SNMP wants it: "udp:192.0.2.1:162".
TrapError resolveTrapServer(const TrapServer& server, const HostLookup& lookUp,
                            std::chrono::milliseconds limit, std::string& address);

}  // namespace host::trap
