// The settings of everything that sends.
#pragma once

#include <string>

#include "host/delivery/smtp_destination.h"
#include "host/delivery/spool_state.h"
#include "library/platform/api.h"
#include "library/platform/global_setting.h"

namespace host::delivery {

/// Section "delivery" of the global settings. Keys, with what holds when they are missing:
///
///     state_folder              the folder of the adapter (/var/lib/kavi)
///     hello_name                what this host calls itself (its host name)
///     scan_host, plain_host     where mail goes that is to be scanned again, and where that which
///                               is not (nowhere: such mail is refused)
///     scan_port, plain_port     25
///     X_tls                     off, try, starttls or implicit (off)
///     X_verify                  whether certificates must hold, 0 or 1 (1, with "try" 0)
///     X_ca_file                 certificates to trust (the system's)
///     X_user, X_password_file   the login; the file's first line is the password (none)
///     connect_timeout_seconds 30, command_timeout_seconds 300, total_timeout_seconds 1800
///     handoff_deadline_seconds  for a whole hand-off, the sender waits meanwhile (60)
///     retry_first_seconds 60, retry_longest_seconds 3600, give_up_seconds 432000
///     seal_key_file             the keys that seal reprocessing headers ("reprocess.keys" in the
///                               folder of the adapter)
///
/// X is scan, plain or handoff. A section "delivery HOST:PORT" with the keys tls, verify, ca_file,
/// user and password_file holds for hand-offs to that host and port instead of handoff_*.
struct KAVI_API DeliverySettings {
  std::string stateFolder = "/var/lib/kavi";
  std::string helloName;
  SmtpDestination scan;
  SmtpDestination plain;
  SmtpTimeouts timeouts;
  int handoffDeadlineMs = 60'000;
  RetrySchedule retry;
  std::string sealKeyFile;

  /// Reads all of it. \param settings  kept for hand-offs; must outlive this object and not change
  /// \param error  receives one line for each fault: section, key, fault, remedy
  /// \return false if anything is wrong; this object is then as it was.
  bool read(Kavi::GlobalSetting& settings, std::string& error);

  /// The file of the sealing keys.
  std::string sealKeyPath() const {
    return sealKeyFile.empty() ? stateFolder + "/reprocess.keys" : sealKeyFile;
  }

  /// How to hand off to a host. \param error  receives the reason, when a section for it is wrong
  bool handoffTo(const std::string& host, int port, SmtpDestination& to, std::string& error) const;

 private:
  Kavi::GlobalSetting* settings_ = nullptr;
};

}  // namespace host::delivery
