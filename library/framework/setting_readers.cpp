#include "library/framework/setting_readers.h"

#include "library/framework/guard.h"
#include "library/platform/global_setting.h"

namespace library {

bool readString(Kavi::GlobalSetting& settings, const char* key, const char* section,
                std::string& value) {
  return guarded("Kavi::GlobalSetting::getString", false,
                 [&] { return settings.getString(key, value, section, 0) == 0; });
}

bool readInt(Kavi::GlobalSetting& settings, const char* key, const char* section, int& value) {
  return guarded("Kavi::GlobalSetting::getInt", false,
                 [&] { return settings.getInt(key, value, section, 0) == 0; });
}

}  // namespace library
