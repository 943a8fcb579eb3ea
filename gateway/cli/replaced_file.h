// Files that commands write for people.
#pragma once

#include <string>
#include <string_view>

namespace gateway::cli {

/// Puts \p text into the file \p path, whole or not at all: whoever opens it sees what was there
/// before, or the text. A new file may be read by its owner only; one that was there keeps its
/// permissions. \return why it could not be done; empty for success.
std::string replaceFile(const std::string& path, std::string_view text);

}  // namespace gateway::cli
