// The scripted SMTP server as seen by a test.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "host/delivery/smtp_destination.h"
#include "tests/unit/host/core/temp_folder.h"

namespace testing_host {

struct SinkEvent {
  int connection = 0;
  std::string kind;  ///< connect, command, reply, deed, message, tls, bare-lf, closed
  std::string text;
};

/// Runs smtp_sink.py (which says what a script may hold) from construction to destruction.
class SmtpSink {
 public:
  explicit SmtpSink(const std::string& script = "{}");
  ~SmtpSink();
  SmtpSink(const SmtpSink&) = delete;
  SmtpSink& operator=(const SmtpSink&) = delete;

  int port() const { return port_; }
  host::delivery::SmtpDestination destination() const;

  std::vector<SinkEvent> events() const;
  /// The commands seen, all connections together.
  std::vector<std::string> commands() const;
  std::size_t connections() const;
  /// What was accepted, in order.
  std::vector<std::string> messages() const;
  /// The one accepted last; empty when there is none.
  std::string lastMessage() const;

 private:
  TempFolder folder_;
  pid_t process_ = -1;
  int input_ = -1;
  int port_ = 0;
};

}  // namespace testing_host
