// Settings strings of subject tags. Input: four bytes of length, then the text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "library/actions/modification/tag_subject.h"

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

  uiTagSubject settings;
  ActTagSubject action;
  const bool accepted = settings.construct(text.c_str(), length);
  require(action.construct(text.c_str(), length) == accepted);
  bool signedToo = false;
  std::string tag;
  require(settings.getTagSubjectAction(signedToo, tag) == 0);
  require(accepted != tag.empty());
  if (!accepted) {
    return 0;
  }
  require(signedToo == (text[0] == 'T'));
  require(tag == text.substr(1, tag.size()) && tag.find('\0') == std::string::npos);

  const std::string written = settings.serialize();
  require(action.serialize() == written);
  uiTagSubject again;
  require(again.construct(written.c_str(), static_cast<unsigned int>(written.size())));
  require(again.serialize() == written);
  return 0;
}
