#include "gateway/policy/text_file.h"

#include <sys/stat.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>

namespace gateway::policy {

std::optional<TextFault> findTextFault(std::string_view text) {
  int line = 1;
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  for (std::size_t at = 0; at < text.size();) {
    // The macro counts in 32 bits: it looks at one character at a time.
    const auto rest = static_cast<std::int32_t>(std::min<std::size_t>(text.size() - at, 4));
    std::int32_t length = 0;
    UChar32 c = 0;
    U8_NEXT(bytes + at, length, rest, c);
    if (c == '\n') ++line;
    if (c < 0) return TextFault{line, "a byte that is not UTF-8 (save the file as UTF-8)"};
    if ((c < 0x20 && c != '\n' && c != '\r' && c != '\t') || c == 0x7F) {
      return TextFault{line, "control byte " + std::to_string(c) + " (remove it)"};
    }
    at += static_cast<std::size_t>(length);
  }
  return std::nullopt;
}

std::string readTextFile(const std::string& path, std::size_t maxBytes, std::string& text) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return "is a folder";
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::string("cannot be read: ") + std::strerror(errno);
  // One byte more than wanted tells that there are too many.
  constexpr std::size_t kPiece = std::size_t{64} << 10;
  text.clear();
  for (std::size_t size = 0; file && size <= maxBytes; size = text.size()) {
    const std::size_t piece = std::min(kPiece, maxBytes + 1 - size);
    text.resize(size + piece);
    file.read(text.data() + size, static_cast<std::streamsize>(piece));
    text.resize(size + static_cast<std::size_t>(file.gcount()));
  }
  if (file.bad()) return std::string("cannot be read: ") + std::strerror(errno);
  return {};
}

}  // namespace gateway::policy
