// Names from outside as names of folders and files, and back.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "library/platform/api.h"

namespace host::delivery {

/// The longest name that `escapedPieces` makes, in bytes.
inline constexpr std::size_t kMaxPieceBytes = 200;

/// \p name, any bytes, as one or more names of folders, one within the other. Letters of every
/// script stay readable; what could leave the folder, hide in it or confuse a terminal is written
/// as "%HH": "/", a "." or "-" at the beginning, control characters, "%", "~" and bytes that are no
/// UTF-8. A long name is cut in pieces; each but the last ends in "%+". The empty name is "%".
/// Different names never give the same pieces.
KAVI_API std::vector<std::string> escapedPieces(std::string_view name);

/// The same in one piece, whatever its length.
KAVI_API std::string escapedName(std::string_view name);

/// Adds the name that one piece stands for to \p name.
/// \param more  receives whether another piece has to follow.
/// \return false, with the outputs as they were, if it is no such piece.
KAVI_API bool appendUnescaped(std::string_view piece, std::string& name, bool& more);

}  // namespace host::delivery
