#include "host/delivery/line_ends.h"

#include <algorithm>
#include <cstring>

namespace host::delivery {

std::size_t CrLfEncoder::encode(std::string_view& in, char* out, std::size_t room) {
  if (in.empty()) return 0;
  if (afterCr_) {
    afterCr_ = false;
    if (in[0] == '\n') in.remove_prefix(1);
  }
  const char* p = in.data();
  const char* const end = p + std::min(in.size(), room);
  const auto next = [&](char c) {
    const void* found = std::memchr(p, c, static_cast<std::size_t>(end - p));
    return found != nullptr ? static_cast<const char*>(found) : end;
  };
  // Each is searched for again only when it was passed: a text that has one kind only is not
  // searched for the other at every line.
  const char* cr = next('\r');
  const char* lf = next('\n');
  std::size_t written = 0;
  while (p < end && room - written >= 2) {
    const char* const stop = std::min(cr, lf);
    const std::size_t plain = std::min(static_cast<std::size_t>(stop - p), room - written);
    std::memcpy(out + written, p, plain);
    written += plain;
    p += plain;
    if (p == end || p != stop || room - written < 2) break;
    const bool isCr = *p++ == '\r';
    out[written++] = '\r';
    out[written++] = '\n';
    if (isCr) {
      afterCr_ = p == end;
      if (p < end && *p == '\n') ++p;
      cr = next('\r');
    }
    if (lf < p) lf = next('\n');
  }
  in.remove_prefix(static_cast<std::size_t>(p - in.data()));
  return written;
}

}  // namespace host::delivery
