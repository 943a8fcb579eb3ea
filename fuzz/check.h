// What the targets have in common.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace fuzz {

/// Ends the run, which keeps the input, unless \p condition holds.
inline void require(bool condition, const char* what = nullptr) {
  if (condition) return;
  if (what != nullptr) std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

/// A settings string and the length that its reader is told: four bytes, then the text.
struct Setting {
  unsigned int length = 0;
  std::string text;

  /// \return false for an input that is too short to be one.
  bool read(const std::uint8_t* data, std::size_t size) {
    if (size < sizeof length) return false;
    std::memcpy(&length, data, sizeof length);
    text.assign(reinterpret_cast<const char*>(data) + sizeof length, size - sizeof length);
    return true;
  }
};

/// The object that \p written makes. What was accepted once must be written in a form that is
/// accepted, and that stays as it is.
template <class Object>
Object reread(const std::string& written) {
  Object object;
  require(object.construct(written.c_str(), static_cast<unsigned int>(written.size())));
  require(object.serialize() == written);
  return object;
}

}  // namespace fuzz
