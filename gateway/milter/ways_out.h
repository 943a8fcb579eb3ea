// Whether what a policy sends has somewhere to go.
#pragma once

#include <string>
#include <vector>

#include "gateway/policy/snapshot.h"
#include "host/delivery/delivery_settings.h"
#include "library/platform/global_setting.h"

namespace gateway::milter {

/// The rules of a policy that send something, each as "15 (readdress)".
struct WaysOut {
  std::vector<std::string> toScan;   ///< back to be scanned: to scan_host
  std::vector<std::string> toPlain;  ///< past the scanner: to plain_host
};

/// \param settings  says whether notifications that carry the message are scanned
WaysOut waysOf(const policy::Snapshot& policy, Kavi::GlobalSetting& settings);

/// What keeps these rules from ever sending, a line each: every message that they match is refused
/// for now.
std::vector<std::string> missingServers(const WaysOut& ways,
                                        const host::delivery::DeliverySettings& delivery);

/// What is wrong when mail is sent back and no listener is named for it; empty when nothing is.
std::string missingListener(const WaysOut& ways, const host::delivery::DeliverySettings& delivery,
                            const std::string& listener);

}  // namespace gateway::milter
