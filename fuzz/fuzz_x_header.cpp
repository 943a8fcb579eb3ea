// Settings strings of the X-header action. Input: four bytes of length, then the text.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "library/actions/modification/x_header.h"

namespace {

void require(bool condition) {
  if (!condition) {
    std::abort();
  }
}

bool isPlain(const std::string& text) {
  return !text.empty() && text.size() <= 512 && text.front() != ' ' && text.back() != ' ' &&
         std::all_of(text.begin(), text.end(), [](char byte) { return byte >= 32 && byte <= 126; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  unsigned int length = 0;
  if (size < sizeof length) {
    return 0;
  }
  std::memcpy(&length, data, sizeof length);
  const std::string text(reinterpret_cast<const char*>(data) + sizeof length, size - sizeof length);

  uiInsertXHeaderTag settings;
  ActInsertXHeaderTag action;
  const bool accepted = settings.construct(text.c_str(), length);
  require(action.construct(text.c_str(), length) == accepted);
  if (!accepted) {
    return 0;
  }
  std::string name;
  std::string value;
  require(settings.getXHeaderTag(name, value));
  require(isPlain(name) && isPlain(value) && name.find(':') == std::string::npos);

  const std::string written = settings.serialize();
  require(action.serialize() == written);
  uiInsertXHeaderTag again;
  require(again.construct(written.c_str(), static_cast<unsigned int>(written.size())));
  require(again.serialize() == written);
  return 0;
}
