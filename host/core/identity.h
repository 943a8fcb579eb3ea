// Whom the process acts as.
#pragma once

#include <string>

#include "library/platform/api.h"

namespace host::core {

/// Makes the process run as \p user, with that user's groups, for good, when root runs it; does
/// nothing for anybody else, and nothing when \p user is root. At start-up.
/// \return an error text; empty for success.
KAVI_API std::string becomeUser(const std::string& user);

/// What root makes in the folder of another user cannot be used by that user: files have mode 0600.
/// So the process becomes, for good, whoever owns the folder \p path or, while it is missing, the
/// nearest one above it; where that is root, \p otherwise (empty for nobody). Does nothing unless
/// root runs it. At start-up, before a file is made.
/// \param became  receives the name of the new user; empty when it stays the same
/// \return an error text, which says what to do: \p path is missing and \p otherwise could not make
///   it, or the user cannot be taken on. Empty for success.
KAVI_API std::string becomeOwner(const std::string& path, const std::string& otherwise,
                                 std::string& became);

}  // namespace host::core
