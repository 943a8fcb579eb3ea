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

}  // namespace gateway::cli
