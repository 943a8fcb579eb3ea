// Start-up of the library.
#pragma once

#include "library/platform/api.h"

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// Initialises the library settings, then every action class. To be called once, before any action
/// is built and before other threads use the library; hosts may find it with dlsym under its plain
/// name, a reference being handed over as a pointer.
/// \param settings  read during the call only
/// \param log       used for as long as the library is loaded
/// \return 1, always: a class that cannot be initialised is left with its defaults.
extern "C" KAVI_API int InitActionLib(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);
