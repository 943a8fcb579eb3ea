// Where the settings say that the store is.
#pragma once

#include <string>

#include "library/platform/global_setting.h"

namespace gateway::policy {

/// Key `location` of section `store`: "sqlite:/PATH" or "postgresql://...".
/// \param fault  receives what is wrong with it, with the remedy; then nothing is returned
/// \return empty when the settings name none.
std::string configuredStore(Kavi::GlobalSetting& settings, std::string& fault);

}  // namespace gateway::policy
