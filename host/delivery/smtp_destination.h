// Where mail is sent to, and how.
#pragma once

#include <stop_token>
#include <string>

namespace host::delivery {

enum class SmtpTls {
  Off,
  Opportunistic,  ///< STARTTLS when the server offers it
  Required,       ///< STARTTLS, or nothing is sent
  Implicit,       ///< TLS from the first byte
};

/// One server.
struct SmtpDestination {
  std::string host;  ///< a name or an address; empty when none is set
  int port = 25;
  SmtpTls tls = SmtpTls::Off;
  bool verifyPeer = true;  ///< whether the certificate must hold for the host
  std::string caFile;      ///< certificates to trust, PEM; empty: those of the system
  std::string user;        ///< for AUTH; empty: no login
  std::string password;

  bool isSet() const { return !host.empty(); }
  std::string text() const { return host + ":" + std::to_string(port); }
};

struct SmtpTimeouts {
  int connectMs = 30'000;   ///< until the session is ready: name, connection, TLS, login
  int commandMs = 300'000;  ///< for each reply; counted in whole seconds, rounded up
  int totalMs = 1'800'000;  ///< for all of it
  /// Ends, within a second, what is under way, and lets nothing begin (BrokenOff).
  std::stop_token breakOff{};
};

}  // namespace host::delivery
