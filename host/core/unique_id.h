// Ids that are never given twice.
#pragma once

#include <string>

#include "library/platform/api.h"

namespace host::core {

/// A new id of 32 characters from [0-9a-z]: the microseconds of its making in hexadecimal, so that
/// ids sort by age, and 72 random bits. \throw std::system_error without a source of randomness.
KAVI_API std::string makeUniqueId();

}  // namespace host::core
