// What can be known of a folder without making it.
#pragma once

#include <string>

#include "host/core/file_error.h"
#include "library/platform/api.h"

namespace host::core {

/// The folder above \p path, as far as the text tells; "/" and "." have themselves.
std::string folderAbove(const std::string& path);

/// Whether this user may make files in the folder \p path or, while it is missing, make the folder.
/// Makes nothing. \return None, or why not.
KAVI_API FileError mayKeepFiles(std::string path);

}  // namespace host::core
