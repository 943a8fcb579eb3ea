// What is wrong with settings that their readers would pass over.
#pragma once

#include <string>

#include "library/platform/global_setting.h"

namespace gateway::engine {

/// Looks at the values that the library and the log read: a value that is none counts as missing
/// there, and nobody would learn of it. Sections that refuse their own values (delivery, milter,
/// store) are not looked at. At start-up, on one thread.
/// \return one line for each fault: section, key, fault, remedy; empty when there is none.
std::string settingsFaults(Kavi::GlobalSetting& settings);

}  // namespace gateway::engine
