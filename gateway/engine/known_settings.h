// What the settings file may say.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/core/ini_settings.h"

namespace gateway::engine {

/// Whether some part of the programs reads \p key of \p section. Case does not count.
bool isKnownSetting(std::string_view section, std::string_view key);

/// What in \p settings nobody reads, a line each: line number, key or section, and what was most
/// likely meant. It has no effect, which whoever wrote it has to be told.
std::vector<std::string> unknownSettings(const host::core::IniSettings& settings);

/// Values of \p settings with what looks like a comment behind them, a line each: a comment is a
/// line of its own, and behind a value a part of it.
std::vector<std::string> trailingComments(host::core::IniSettings& settings);

/// Both: what whoever wrote \p settings most likely did not mean.
std::vector<std::string> doubtfulSettings(host::core::IniSettings& settings);

}  // namespace gateway::engine
