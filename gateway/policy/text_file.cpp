#include "gateway/policy/text_file.h"

#include <sys/stat.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "host/core/input_file.h"

namespace gateway::policy {
namespace {

std::string unreadable(int error) { return std::string("cannot be read: ") + std::strerror(error); }

}  // namespace

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

std::string readTextFile(const std::string& path, FileKind kind, std::size_t maxBytes,
                         std::string& text) {
  host::core::Descriptor file;
  const std::string irregular = std::string("is no regular file: name one") +
                                (kind == FileKind::Given ? ", or /dev/stdin" : "");
  const int fault = host::core::openInput(path, file);
  if (fault == host::core::kNoRegularFile) return irregular;
  struct stat status {};
  if (fault != 0 || ::fstat(file.get(), &status) != 0)
    return unreadable(fault != 0 ? fault : errno);
  if (S_ISDIR(status.st_mode)) return "is a folder";
  if (kind == FileKind::Regular && !S_ISREG(status.st_mode)) return irregular;
  host::core::FileOps& ops = host::core::FileOps::system();
  // One byte more than wanted tells that there are too many.
  constexpr std::size_t kPiece = std::size_t{64} << 10;
  text.clear();
  while (text.size() <= maxBytes) {
    const std::size_t size = text.size();
    const std::size_t piece = std::min(kPiece, maxBytes + 1 - size);
    text.resize(size + piece);
    const ssize_t got = ops.read(file.get(), text.data() + size, piece);
    text.resize(size + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (got < 0) return unreadable(static_cast<int>(-got));
    if (got == 0) break;
  }
  return {};
}

}  // namespace gateway::policy
