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

/// Has root act as whoever the state folder belongs to (see host::core::becomeOwner), or as `user`
/// in section milter, whom the daemon becomes: that user has to be able to work on what the command
/// makes. Files that only root may read have to be read before. Behind `readDelivery`, before a
/// file is made. \param state  as there: with it, only the folder counts
/// \param told  whether to say on standard error whom the command acts as
/// \return false after writing the reason to standard error.
bool actAsOwner(Kavi::GlobalSetting& settings, const std::string& state,
                const host::delivery::DeliverySettings& delivery, bool told = false);

/// Whether results may be written to \p out: not into a folder of the gateway's own (state,
/// quarantine, archive) or below it, where they would be taken for its mail.
/// \param settings  read, with the defaults of the folders \param state  as in `readDelivery`
/// \return false after writing the reason to standard error.
bool mayWriteTo(const std::string& out, Kavi::GlobalSetting& settings, const std::string& state);

}  // namespace gateway::cli
