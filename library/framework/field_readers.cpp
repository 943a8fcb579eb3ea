#include "library/framework/field_readers.h"

#include <cstdlib>
#include <cstring>

namespace library {

bool _get_numeric_data(long& value, const char*& cursor, char*& end) {
  end = nullptr;
  if (cursor == nullptr) {
    return false;
  }
  value = static_cast<long>(std::strtoul(cursor, &end, 10));
  cursor = *end == '\0' ? end : end + 1;
  return true;
}

bool _get_string_data(std::string& out, const char*& cursor, char*& end, unsigned int& remaining) {
  if (cursor == nullptr || *cursor == '\0') {
    return false;
  }
  end = nullptr;
  const unsigned long length = std::strtoul(cursor, &end, 10);
  const std::size_t converted = static_cast<std::size_t>(end - cursor);
  if (converted > remaining) {
    remaining = 0;
    return false;
  }
  remaining -= static_cast<unsigned int>(converted);
  if (length >= remaining || *end == '\0') {
    return false;
  }
  const char* bytes = end + 1;
  // A text that ends within the bytes cannot hold the closing ":" at its place.
  if (strnlen(bytes, length) < length || bytes[length] != ':') {
    return false;
  }
  out.assign(bytes, length);
  end += 1 + length;
  cursor = end + 1;
  return true;
}

}  // namespace library
