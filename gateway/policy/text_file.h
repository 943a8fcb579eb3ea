// Text files of a policy.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace gateway::policy {

/// Why bytes are no text, and where.
struct TextFault {
  int line;  ///< counted from 1
  std::string reason;
};

/// The first byte of \p text that is not UTF-8, or a control byte other than a tab and the bytes of
/// a line break; nothing when there is none.
std::optional<TextFault> findTextFault(std::string_view text);

/// What a name may stand for.
enum class FileKind {
  Regular,  ///< nothing that could keep its reader waiting
  Given     ///< standard input, too: for names from the command line
};

/// Reads the file at \p path, its first \p maxBytes + 1 bytes at most: that is enough to know that
/// it is too large.
/// \return why it cannot be read; empty for success.
std::string readTextFile(const std::string& path, FileKind kind, std::size_t maxBytes,
                         std::string& text);

}  // namespace gateway::policy
