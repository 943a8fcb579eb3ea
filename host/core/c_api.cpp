#include "host/core/c_api.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "host/core/guard.h"
#include "host/core/ini_settings.h"
#include "host/core/log.h"

namespace {

void giveError(const char* text, char* error, size_t errorSize) {
  if (error == nullptr || errorSize == 0) return;
  const size_t length = std::min(std::strlen(text), errorSize - 1);
  std::memcpy(error, text, length);
  error[length] = '\0';
}

// The C types are never defined: their addresses are those of the interfaces' objects.
kavi_settings* toC(Kavi::GlobalSetting* settings) {
  return reinterpret_cast<kavi_settings*>(settings);
}

kavi_log* toC(Kavi::LogMsg* log) { return reinterpret_cast<kavi_log*>(log); }

}  // namespace

kavi_settings* kavi_settings_open(const char* iniPath, char* error, size_t errorSize) {
  giveError("out of memory", error, errorSize);
  return host::core::guarded<kavi_settings*>(nullptr, [&]() -> kavi_settings* {
    auto settings = std::make_unique<host::core::IniSettings>();
    std::string reason;
    if (iniPath != nullptr && !settings->loadFile(iniPath, reason)) {
      giveError(reason.c_str(), error, errorSize);
      return nullptr;
    }
    giveError("", error, errorSize);
    return toC(settings.release());
  });
}

void kavi_settings_close(kavi_settings* settings) {
  delete reinterpret_cast<Kavi::GlobalSetting*>(settings);
}

kavi_log* kavi_log_open(int level) {
  return host::core::guarded<kavi_log*>(nullptr, [level] {
    host::core::LogOptions options;
    options.level = level;
    return toC(std::make_unique<host::core::ProcessLog>(options).release());
  });
}

void kavi_log_close(kavi_log* log) { delete reinterpret_cast<Kavi::LogMsg*>(log); }
