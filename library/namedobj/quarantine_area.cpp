#include "library/namedobj/quarantine_area.h"

#include <cstddef>

#include "library/framework/field_readers.h"
#include "library/framework/field_writers.h"
#include "library/framework/guard.h"

namespace {

constexpr std::size_t kResultReserve = 1024;

}  // namespace

uiQuarantineArea::~uiQuarantineArea() = default;

bool uiQuarantineArea::construct(const char* setting, unsigned int length) {
  return library::guarded("uiQuarantineArea::construct", false, [&] {
    if (setting == nullptr || *setting == '\0') {
      return false;
    }
    const char* cursor = setting;
    char* end = nullptr;
    long days = 0;
    library::_get_numeric_data(days, cursor, end);
    agingDays = static_cast<unsigned int>(days);
    agingEnabled = agingDays != 0;

    const std::size_t used = static_cast<std::size_t>(end + 1 - setting);
    if (used > length) {
      return false;
    }
    unsigned int remaining = length - static_cast<unsigned int>(used);
    return library::_get_string_data(areaName, cursor, end, remaining);
  });
}

std::string uiQuarantineArea::serialize() {
  return library::guarded("uiQuarantineArea::serialize", std::string(), [&] {
    if (!agingEnabled) {
      agingDays = 0;
    }
    std::string text;
    text.reserve(kResultReserve);
    library::appendNumericField(text, agingDays);
    library::appendStringField(text, areaName);
    return text;
  });
}

unsigned int uiQuarantineArea::getType() const { return QuarantineAreaType; }
