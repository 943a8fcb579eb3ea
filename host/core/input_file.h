// Files that people name for reading.
#pragma once

#include <string>

#include "host/core/file_ops.h"
#include "library/platform/api.h"

namespace host::core {

/// Where openInput refuses a file that is neither a regular one nor a folder, nor given.
inline constexpr int kNoRegularFile = -1;

/// Opens the file \p path for reading, unless that could keep the program waiting for a stranger:
/// pipes and devices are refused, but for what the program was started with (/dev/stdin,
/// /dev/fd/3). A folder is opened, too; it cannot be read. \param file  receives it \return 0,
/// kNoRegularFile or the errno value
KAVI_API int openInput(const std::string& path, Descriptor& file);

}  // namespace host::core
