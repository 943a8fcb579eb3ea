// `kavi notify`
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "gateway/cli/policy_setup.h"

namespace gateway::cli {

struct NotifyOptions {
  std::string name;      ///< of a notification that the policy declares
  std::string file;      ///< the message; "-" for standard input
  PolicyOptions policy;  ///< where it is declared
  std::string config;    ///< settings file; empty for none
  std::string sendTest;  ///< whom to send the mail to instead of its recipients; empty: nobody
  std::optional<std::string> from;
  std::vector<std::string> recipients;
};

/// Prints the mail of a notification as it would go out for a message, and on standard error whom
/// it would go to and its trap; or sends it to one address only, without its trap. Its tokens have
/// the values of the first rule that sends the notification, which need not match. \return the exit
/// status: 1 when there is no mail, or it could not be sent.
int notifyCommand(const NotifyOptions& options);

}  // namespace gateway::cli
