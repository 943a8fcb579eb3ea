// File names from names that come from outside.
#pragma once

#include <string>
#include <string_view>

#include "library/platform/api.h"

namespace host::delivery {

/// A name for a file that stands for the input \p inputName: its last path component with control
/// characters and bytes that are no UTF-8 replaced by "_", and so a leading "." or "-". At most
/// 180 bytes, keeping a short extension; never empty, never a path.
KAVI_API std::string safeFileName(std::string_view inputName);

/// \p name with a number before its extension: "a.eml", 2 makes "a-2.eml".
KAVI_API std::string numberedFileName(std::string_view name, unsigned int number);

}  // namespace host::delivery
