#include "library/platform/archive_area.h"

#include <cstdlib>
#include <cstring>

#include "host/core/guard.h"

namespace {

constexpr std::size_t kSettingReserve = 1024;

// Reads "length:bytes:" at `cursor`. `remaining` counts the bytes from `cursor` on; like the other
// records' reader it takes only the digits of the length off it before it compares. No byte behind
// the terminating NUL is looked at.
bool readName(const char* cursor, std::size_t remaining, std::string& name) {
  if (*cursor == '\0') return false;
  char* end = nullptr;
  const unsigned long length = std::strtoul(cursor, &end, 10);
  const auto digits = static_cast<std::size_t>(end - cursor);
  if (digits >= remaining || length >= remaining - digits) return false;
  if (*end == '\0') return false;
  const char* bytes = end + 1;
  if (std::memchr(bytes, '\0', length) != nullptr || bytes[length] != ':') return false;
  name.assign(bytes, length);
  return true;
}

}  // namespace

bool ArchiveArea::construct(const char* setting, unsigned int length) {
  if (setting == nullptr || *setting == '\0') return false;
  char* end = nullptr;
  agingDays = static_cast<unsigned int>(std::strtoul(setting, &end, 10));
  agingEnabled = agingDays != 0;
  // One character behind the number is skipped, whatever it is.
  const auto used = static_cast<std::size_t>(end - setting) + 1;
  if (used > length || *end == '\0') return false;
  return host::core::guarded(false, [&] { return readName(end + 1, length - used, areaName); });
}

std::string ArchiveArea::serialize() {
  if (!agingEnabled) agingDays = 0;
  return host::core::guarded(std::string(), [this] {
    std::string setting;
    setting.reserve(kSettingReserve);
    setting += std::to_string(agingDays);
    setting += ':';
    setting += std::to_string(areaName.size());
    setting += ':';
    setting += areaName;
    setting += ':';
    return setting;
  });
}

unsigned int ArchiveArea::getType() const { return ArchiveAreaType; }
