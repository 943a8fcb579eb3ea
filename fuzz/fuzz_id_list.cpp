// Id lists. Input: four bytes of length, then the text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "library/framework/id_list.h"

namespace {

void require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::int32_t length = 0;
  if (size < sizeof length) {
    return 0;
  }
  std::memcpy(&length, data, sizeof length);
  const std::string text(reinterpret_cast<const char*>(data) + sizeof length, size - sizeof length);

  std::vector<unsigned int> ids;
  const bool parsed = library::parseIdList(text.c_str(), length, ids);
  // Each id but the first has a separator in front, and the count stands before them all.
  require(2 * ids.size() <= text.size());
  require(!parsed || !ids.empty());

  std::vector<unsigned int> again;
  const std::string written = library::formatIdList(ids);
  require(library::parseIdList(written.c_str(), static_cast<int>(written.size()), again) ==
          !ids.empty());
  require(again == ids);
  return 0;
}
