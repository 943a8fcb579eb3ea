#include "library/namedobj/stamp_area.h"

#include <climits>
#include <cstddef>
#include <cstdlib>

#include "library/framework/field_readers.h"
#include "library/framework/field_writers.h"
#include "library/framework/guard.h"

namespace {

constexpr std::size_t kResultReserve = 1024;

// Reads a number at `text`; `end` receives what stands behind it. A number that is missing, 0, or
// too large for the field is refused.
bool readNumber(const char* text, char*& end, unsigned int& number) {
  const unsigned long value = std::strtoul(text, &end, 10);
  if (value == 0 || value >= UINT_MAX) {
    return false;
  }
  number = static_cast<unsigned int>(value);
  return true;
}

}  // namespace

uiStampArea::~uiStampArea() = default;

bool uiStampArea::construct(const char* setting, unsigned int length) {
  return library::guarded("uiStampArea::construct", false, [&] {
    if (setting == nullptr || *setting == '\0') {
      return false;
    }
    char* end = nullptr;
    if (!readNumber(setting, end, insertPosition) || *end == '\0' ||
        !readNumber(end + 1, end, signedTnefMode) || *end == '\0') {
      return false;
    }
    const char* cursor = end + 1;
    const auto used = static_cast<std::size_t>(cursor - setting);
    if (used > length) {
      return false;
    }
    unsigned int remaining = length - static_cast<unsigned int>(used);
    return library::_get_string_data(stampText, cursor, end, remaining) &&
           library::_get_string_data(auxText, cursor, end, remaining);
  });
}

std::string uiStampArea::serialize() {
  return library::guarded("uiStampArea::serialize", std::string(), [&] {
    std::string text;
    text.reserve(kResultReserve);
    library::appendNumericField(text, insertPosition);
    library::appendNumericField(text, signedTnefMode);
    library::appendStringField(text, stampText);
    library::appendStringField(text, auxText);
    return text;
  });
}

unsigned int uiStampArea::getType() const { return StampType; }
