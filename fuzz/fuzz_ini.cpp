// Settings files: any text is read or refused with a reason, one line to a fault.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "host/core/ini_settings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  host::core::IniSettings settings;
  std::string error;
  if (settings.loadText(text, "fuzz.ini", error)) {
    if (!error.empty()) std::abort();
    std::string value;
    int number = 0;
    settings.getString("key", value, "section", 0);
    settings.getInt("number", number, "section", 0);
    return 0;
  }
  if (error.empty() || std::count(error.begin(), error.end(), '\n') > 9) std::abort();
  for (const char c : error) {
    if (static_cast<unsigned char>(c) < 0x20 && c != '\n') std::abort();
  }
  return 0;
}
