// Records of stamps. Input: four bytes of length, then the text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "library/namedobj/stamp_area.h"

namespace {

void require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  unsigned int length = 0;
  if (size < sizeof length) {
    return 0;
  }
  std::memcpy(&length, data, sizeof length);
  const std::string text(reinterpret_cast<const char*>(data) + sizeof length, size - sizeof length);

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
  uiStampArea again;
  require(again.construct(written.c_str(), static_cast<unsigned int>(written.size())));
  require(again.insertPosition == stamp.insertPosition);
  require(again.signedTnefMode == stamp.signedTnefMode);
  require(again.stampText == stamp.stampText && again.auxText == stamp.auxText);
  require(again.serialize() == written);
  return 0;
}
