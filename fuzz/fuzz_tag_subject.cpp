// Settings strings of subject tags. Input: four bytes of length, then the text.
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "library/actions/modification/tag_subject.h"

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Setting setting;
  if (!setting.read(data, size)) {
    return 0;
  }
  const auto& [length, text] = setting;

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
  fuzz::reread<uiTagSubject>(written);
  return 0;
}
