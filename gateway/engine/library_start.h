// Starting the library, as every program that runs messages does.
#pragma once

#include "host/core/ini_settings.h"
#include "host/core/log.h"

namespace gateway::engine {

/// Section "log" of the settings: Level, Format (text or json), Target (stderr or syslog).
/// \param level  the level when the settings name none
host::core::LogOptions readLogOptions(host::core::IniSettings& settings, int level);

/// Gives \p settings what a settings file need not say.
void setDefaults(host::core::IniSettings& settings);

/// Sets the defaults, and starts the library with them. Once, at the start.
/// \param log  used for as long as the library is loaded
void startLibrary(host::core::IniSettings& settings, host::core::ProcessLog& log);

}  // namespace gateway::engine
