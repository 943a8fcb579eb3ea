// Archive area records: any setting is read within its bounds or refused; what was read comes back.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "library/platform/archive_area.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string setting(reinterpret_cast<const char*>(data) + 1, size - 1);
  // The first byte says by how much the stated length is wrong: the NUL bounds the reader all the
  // same.
  const auto length = static_cast<unsigned int>(setting.size()) + data[0];
  ArchiveArea area;
  if (!area.construct(setting.c_str(), length)) return 0;
  const std::string written = area.serialize();
  ArchiveArea back;
  if (!back.construct(written.c_str(), static_cast<unsigned int>(written.size()))) std::abort();
  if (back.areaName != area.areaName || back.agingDays != area.agingDays) std::abort();
  return 0;
}
