// The named-object id list: "2-7-12" is two ids, 7 and 12.
#pragma once

#include <string>
#include <vector>

namespace library {

/// The list as text. The empty list is "0-0", which `parseIdList` refuses: an action that names no
/// object must not be built from its settings.
std::string formatIdList(const std::vector<unsigned int>& ids);

/// Appends the ids in \p setting to \p ids. Any one character separates; text behind the announced
/// number of ids is ignored. Numbers are read as strtoul reads them and may run past \p length, but
/// never past the terminating NUL.
/// \return false for null, for length 0 and for a list with no or with fewer ids than announced;
///   the ids found before the fault are then in \p ids.
bool parseIdList(const char* setting, int length, std::vector<unsigned int>& ids);

}  // namespace library
