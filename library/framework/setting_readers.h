// Reading the product's settings at start-up.
#pragma once

#include <string>

namespace Kavi {
class GlobalSetting;
}

namespace library {

// A lookup that throws counts as a missing key, and is logged: nothing may stop the start-up.

/// \param value  receives the setting; left as the lookup leaves it when the key is missing.
/// \return whether the key was found.
bool readString(Kavi::GlobalSetting& settings, const char* key, const char* section,
                std::string& value);
bool readInt(Kavi::GlobalSetting& settings, const char* key, const char* section, int& value);

}  // namespace library
