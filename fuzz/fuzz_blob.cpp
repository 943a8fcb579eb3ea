// Blob records: any text is read within its bounds or refused, and what was read comes back.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>

#include "library/platform/blob.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using Fields = std::map<std::string, std::string>;
  const std::string text(reinterpret_cast<const char*>(data), size);
  const char* cursor = text.c_str();
  Fields fields;
  if (!Blob::readBlob(cursor, fields)) {
    if (cursor != text.c_str() || !fields.empty()) std::abort();
  } else {
    if (cursor <= text.c_str() || cursor > text.c_str() + text.size()) std::abort();
    std::string written;
    Blob::writeBlob(written, fields);
    const char* again = written.c_str();
    Fields back;
    if (!Blob::readBlob(again, back) || back != fields) std::abort();
    for (auto& [key, value] : back) {
      int number = 0;
      Blob::bindBlobField(back, key.c_str(), number, false);
    }
  }
  // The bytes themselves are a value, too.
  std::string record;
  Blob::writeBlob(record, {{text, text}});
  const char* start = record.c_str();
  Fields carried;
  if (!Blob::readBlob(start, carried) || carried.at(text) != text) std::abort();
  return 0;
}
