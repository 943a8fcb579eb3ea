// Settings strings of the X-header action. Input: four bytes of length, then the text.
#include <algorithm>
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "library/actions/modification/x_header.h"

namespace {

using fuzz::require;

bool isPlain(const std::string& text) {
  return !text.empty() && text.size() <= 512 && text.front() != ' ' && text.back() != ' ' &&
         std::all_of(text.begin(), text.end(), [](char byte) { return byte >= 32 && byte <= 126; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Setting setting;
  if (!setting.read(data, size)) {
    return 0;
  }
  const auto& [length, text] = setting;

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
  fuzz::reread<uiInsertXHeaderTag>(written);
  return 0;
}
