// Fields of the named-object records. Input: four bytes of what remains, one byte that says which
// reader each of the following eight calls uses, then the text.
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz/check.h"
#include "library/framework/field_readers.h"

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  unsigned int remaining = 0;
  if (size < sizeof remaining + 1) {
    return 0;
  }
  std::memcpy(&remaining, data, sizeof remaining);
  const unsigned int readers = data[sizeof remaining];
  const std::size_t used = sizeof remaining + 1;
  const std::string text(reinterpret_cast<const char*>(data) + used, size - used);

  const char* cursor = text.c_str();
  const char* const nul = cursor + std::strlen(cursor);
  char* end = nullptr;
  for (unsigned int call = 0; call < 8; ++call) {
    const char* const before = cursor;
    const unsigned int remainingBefore = remaining;
    if ((readers >> call & 1) == 0) {
      long value = 0;
      require(library::_get_numeric_data(value, cursor, end));
      require(end >= before && end <= nul);
      require(cursor == end || cursor == end + 1);
      require(cursor > before || before == nul);
    } else {
      std::string value = "old";
      const bool read = library::_get_string_data(value, cursor, end, remaining);
      require(remaining <= remainingBefore);
      if (!read) {
        require(cursor == before && value == "old");
        break;
      }
      require(*end == ':' && cursor == end + 1);
      require(value.size() < remaining);
      require(std::string(end - value.size(), end) == value);
    }
    require(cursor <= nul);
  }
  return 0;
}
