#include "host/delivery/line_ends.h"

#include <algorithm>
#include <cstring>

namespace host::delivery {

namespace {

std::size_t putLineBreak(char* out) {
  out[0] = '\r';
  out[1] = '\n';
  return 2;
}

}  // namespace

std::size_t CrLfEncoder::encode(std::string_view& in, char* out, std::size_t room) {
  if (in.empty()) return 0;
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
    if (heldCrs_ > 0) {
      for (; p < end && *p == '\r'; ++p) ++heldCrs_;
      if (p == end) break;
      if (*p == '\n') {
        heldCrs_ = 1;
        ++p;
      }
      written += putLineBreak(out + written);
      --heldCrs_;
      continue;
    }
    if (cr < p) cr = next('\r');
    if (lf < p) lf = next('\n');
    const char* const stop = std::min(cr, lf);
    const std::size_t plain = std::min(static_cast<std::size_t>(stop - p), room - written);
    std::memcpy(out + written, p, plain);
    written += plain;
    p += plain;
    if (p == end || p != stop || room - written < 2) break;
    if (*p++ == '\r') {
      heldCrs_ = 1;
    } else {
      written += putLineBreak(out + written);
    }
  }
  in.remove_prefix(static_cast<std::size_t>(p - in.data()));
  return written;
}

std::size_t CrLfEncoder::finish(char* out, std::size_t room) {
  std::size_t written = 0;
  for (; heldCrs_ > 0 && room - written >= 2; --heldCrs_) written += putLineBreak(out + written);
  return written;
}

}  // namespace host::delivery
