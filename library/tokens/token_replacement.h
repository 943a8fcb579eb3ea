// Finding and replacing `%TOKEN%` placeholders: what stands behind the operations of ActionUtils
// for the same purpose. Exceptions pass through; callers stand inside the library's guard.
#pragma once

#include <string>
#include <string_view>

#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"

class OvMsgMailMessage;

namespace library {

/// Builds the lookup maps from the token table, anew on each call, and logs the tokens; what throws
/// leaves them as they were. Called at start-up; afterwards the maps are only read, from any
/// thread.
void buildTokenMaps();

/// The value of the token \p text (both "%" included), computed and stored in \p tokens if need be.
/// \return null when \p text is no token; otherwise a text in \p tokens, valid until that changes,
///   or a static empty one.
const char* tokenValue(Kavi::TokenMap<Kavi::ScanToken>& tokens, std::string_view text,
                       const OvMsgMailMessage& msg);

/// Copies \p text up to its first NUL into \p result, every known token replaced. Takes time
/// linear in the text and the values.
/// \param result  replaced; must not be \p text.
void replaceTokens(Kavi::TokenMap<Kavi::ScanToken>& tokens, const std::string& text,
                   const OvMsgMailMessage& msg, std::string& result);

}  // namespace library
