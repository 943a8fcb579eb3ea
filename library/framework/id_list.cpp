#include "library/framework/id_list.h"

#include <cstdlib>

namespace library {

std::string formatIdList(const std::vector<unsigned int>& ids) {
  std::string text = std::to_string(static_cast<unsigned int>(ids.size()));
  if (ids.empty()) {
    text += "-0";
  }
  for (unsigned int id : ids) {
    text += '-';
    text += std::to_string(id);
  }
  return text;
}

bool parseIdList(const char* setting, int length, std::vector<unsigned int>& ids) {
  if (setting == nullptr || length == 0) {
    return false;
  }
  char* end = nullptr;
  unsigned long expected = std::strtoul(setting, &end, 10);
  if (expected == 0) {
    return false;
  }
  for (;;) {
    // Distances, not pointers: `setting + length` may lie far outside the text.
    if (end - setting >= length) {
      return expected == 0;
    }
    if (expected == 0) {
      return true;
    }
    if (*end == '\0') {
      return false;  // nothing can follow, whatever length was promised
    }
    const char* number = end + 1;
    const unsigned long id = std::strtoul(number, &end, 10);
    if (end == number) {
      return false;
    }
    ids.push_back(static_cast<unsigned int>(id));
    --expected;
  }
}

}  // namespace library
