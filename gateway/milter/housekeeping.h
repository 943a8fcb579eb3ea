// What the daemon clears away by itself.
#pragma once

#include <chrono>
#include <stop_token>

#include "host/core/log.h"
#include "host/delivery/delivery_settings.h"
#include "host/delivery/delivery_state.h"

namespace gateway::milter {

/// How often it looks.
inline constexpr std::chrono::minutes kHousekeepingPause{60};

/// Removes quarantined and archived messages whose days are over, and effects that no sender asks
/// for any more; at once, and again after each pause, until \p stop. What it did and what it could
/// not do is in the log. Never throws.
void keepHouse(host::delivery::DeliveryState& state,
               const host::delivery::DeliverySettings& settings, host::core::ProcessLog& log,
               const std::stop_token& stop);

}  // namespace gateway::milter
