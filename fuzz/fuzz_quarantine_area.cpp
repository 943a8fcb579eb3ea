// Records of quarantine areas. Input: four bytes of length, then the text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "library/namedobj/quarantine_area.h"

namespace {

void require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  unsigned int length = 0;
  if (size < sizeof length) {
    return 0;
  }
  std::memcpy(&length, data, sizeof length);
  const std::string text(reinterpret_cast<const char*>(data) + sizeof length, size - sizeof length);

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
  uiQuarantineArea again;
  require(again.construct(written.c_str(), static_cast<unsigned int>(written.size())));
  require(again.areaName == area.areaName && again.agingDays == area.agingDays);
  require(again.serialize() == written);
  return 0;
}
