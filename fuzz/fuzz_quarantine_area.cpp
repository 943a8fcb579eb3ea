// Records of quarantine areas. Input: four bytes of length, then the text.
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "library/namedobj/quarantine_area.h"

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Setting setting;
  if (!setting.read(data, size)) {
    return 0;
  }
  const auto& [length, text] = setting;

  uiQuarantineArea area;
  const bool read = area.construct(text.c_str(), length);
  require(text[0] == '\0' || area.agingEnabled == (area.agingDays != 0));
  require(area.areaName.size() <= text.size());
  if (!read) {
    require(area.areaName.empty());
    return 0;
  }
  // What was accepted is written back in a form that is accepted, and stays as it is.
  const std::string written = area.serialize();
  uiQuarantineArea again = fuzz::reread<uiQuarantineArea>(written);
  require(again.areaName == area.areaName && again.agingDays == area.agingDays);
  return 0;
}
