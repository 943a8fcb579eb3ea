// Records of stamps. Input: four bytes of length, then the text.
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "library/namedobj/stamp_area.h"

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Setting setting;
  if (!setting.read(data, size)) {
    return 0;
  }
  const auto& [length, text] = setting;

  uiStampArea stamp;
  const bool read = stamp.construct(text.c_str(), length);
  require(stamp.insertPosition != 0 && stamp.signedTnefMode != 0);
  require(stamp.stampText.size() + stamp.auxText.size() <= text.size());
  if (!read) {
    require(stamp.auxText.empty());
    return 0;
  }
  // What was accepted is written back in a form that is accepted, and stays as it is.
  const std::string written = stamp.serialize();
  uiStampArea again = fuzz::reread<uiStampArea>(written);
  require(again.insertPosition == stamp.insertPosition);
  require(again.signedTnefMode == stamp.signedTnefMode);
  require(again.stampText == stamp.stampText && again.auxText == stamp.auxText);
  return 0;
}
