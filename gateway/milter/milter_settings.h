// The settings of the daemon.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "gateway/milter/answer.h"
#include "gateway/milter/collected_message.h"
#include "library/platform/global_setting.h"

namespace gateway::milter {

/// Section "milter" of the global settings. Keys, with what holds when they are missing:
///
///     policy                 the policy file (/etc/kavi/policy.yaml); none where key `location` of
///                            section `store` names a store, which holds the policy then
///     socket                 where the mail system connects: "unix:PATH" or "inet:PORT@HOST"
///                            (unix:/var/spool/postfix/kavi/milter)
///     socket_mode            access to a Unix socket, octal (0660)
///     user                   who the daemon becomes when root starts it; root has to name one
///     reinjection_listener   the listener that our own mail comes back to, by the name that it
///                            gives itself ({daemon_name}); seals count only there (none)
///     beyond_limits          what becomes of mail beyond a limit: tempfail or reject (tempfail)
///     max_message_mb 64, max_header_fields 1000, max_header_kb 1024, max_recipients 1000,
///     max_parts 10000, max_depth 100
///     memory_kb              header and body of one message that are kept in memory (1024)
///     metrics_port           of 127.0.0.1, for Prometheus; 0: none (0)
///     deadline_seconds       for the actions of one message, below the mail system's own (240)
struct MilterSettings {
  std::string policy = "/etc/kavi/policy.yaml";  ///< empty when it comes from a store
  std::string store{};                           ///< location of that one; empty for a file
  std::string socket = "unix:/var/spool/postfix/kavi/milter";
  mode_t socketMode = 0660;
  std::string user;
  std::string reinjectionListener;
  Answer::Kind beyondLimits = Answer::Kind::TempFail;
  MessageLimits limits;
  std::size_t memoryBytes = std::size_t{1} << 20;
  int deadlineSeconds = 240;
  int metricsPort = 0;

  /// The path of a Unix socket; empty for any other.
  std::string socketPath() const;

  /// Reads all of it. \param error  receives one line for each fault: section, key, fault, remedy
  /// \return false if anything is wrong; this object is then as it was.
  bool read(Kavi::GlobalSetting& settings, std::string& error);
};

}  // namespace gateway::milter
