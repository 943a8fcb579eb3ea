#include "host/delivery/line_ends.h"

#include <cstring>

namespace host::delivery {

namespace {

// The length of the start of `text` that holds no line break. One loop for both kinds: two searches
// would each run ahead over a text that has only the other.
std::size_t plainLength(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && text[length] != '\r' && text[length] != '\n') ++length;
  return length;
}

}  // namespace

std::size_t CrLfEncoder::encode(std::string_view& in, char* out, std::size_t room) {
  char* const begin = out;
  char* const end = out + room;
  while (!in.empty()) {
    if (afterCr_) {
      afterCr_ = false;
      if (in[0] == '\n') {
        in.remove_prefix(1);
        continue;
      }
    }
    const auto left = static_cast<std::size_t>(end - out);
    if (left < 2) break;
    const std::size_t plain = plainLength(in.substr(0, left));
    std::memcpy(out, in.data(), plain);
    out += plain;
    in.remove_prefix(plain);
    if (in.empty() || end - out < 2) continue;
    afterCr_ = in[0] == '\r';
    in.remove_prefix(1);
    *out++ = '\r';
    *out++ = '\n';
  }
  return static_cast<std::size_t>(out - begin);
}

}  // namespace host::delivery
