// What the commands that deal with the spool start with.
#pragma once

#include <string>

#include "host/delivery/delivery_settings.h"
#include "library/platform/global_setting.h"

namespace gateway::cli {

/// Reads section "delivery". \param settings  must outlive \p found
/// \param state  the state folder, instead of what the settings say; empty for that
/// \return false after writing every fault to standard error.
bool readDelivery(Kavi::GlobalSetting& settings, const std::string& state,
                  host::delivery::DeliverySettings& found);

/// Whether results may be written to \p out: not into a folder of the gateway's own (state,
/// quarantine, archive) or below it, where they would be taken for its mail.
/// \param settings  read, with the defaults of the folders \param state  as in `readDelivery`
/// \return false after writing the reason to standard error.
bool mayWriteTo(const std::string& out, Kavi::GlobalSetting& settings, const std::string& state);

}  // namespace gateway::cli
