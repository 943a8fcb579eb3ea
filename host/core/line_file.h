// Files that lines are appended to.
#pragma once

#include <string>
#include <string_view>

#include "host/core/atomic_file.h"
#include "host/core/file_error.h"
#include "host/core/folder.h"

namespace host::core {

/// Appends \p line and a line break to the file \p name of \p folder, made (mode 0600) when it is
/// missing. Several threads and processes may append to one file: lines never mix. On failure the
/// file is as it was. A line that a crash left unfinished gets its line break first.
/// \param line  without line break
KAVI_API FileError appendLine(const Folder& folder, const std::string& name, std::string_view line,
                              Durability durability);

}  // namespace host::core
