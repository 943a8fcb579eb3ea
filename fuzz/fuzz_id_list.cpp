// Id lists. Input: four bytes of length, then the text.
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "library/framework/id_list.h"

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Setting setting;
  if (!setting.read(data, size)) {
    return 0;
  }
  const auto length = static_cast<int>(setting.length);

  std::vector<unsigned int> ids;
  const bool parsed = library::parseIdList(setting.text.c_str(), length, ids);
  // Each id but the first has a separator in front, and the count stands before them all.
  require(2 * ids.size() <= setting.text.size());
  require(!parsed || !ids.empty());

  std::vector<unsigned int> again;
  const std::string written = library::formatIdList(ids);
  require(library::parseIdList(written.c_str(), static_cast<int>(written.size()), again) ==
          !ids.empty());
  require(again == ids);
  return 0;
}
