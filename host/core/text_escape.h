// Making bytes from outside safe to print.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "library/platform/api.h"

namespace host::core {

/// Appends \p text to \p out with every control character (C0, DEL, C1) and every byte that is
/// not well-formed UTF-8 written as "\xHH"; CR, LF and TAB become "\r", "\n" and "\t". The result
/// is one line of valid UTF-8. A backslash stays as it is: the text is for people to read, not to
/// be taken back.
KAVI_API void appendPrintable(std::string& out, std::string_view text);

/// The same as a new text.
KAVI_API std::string printable(std::string_view text);

/// The length in bytes of the well-formed UTF-8 character that \p text begins with; 0 when it
/// begins with none (RFC 3629: no overlong forms, no surrogates, nothing above U+10FFFF).
KAVI_API std::size_t utf8Length(std::string_view text);

/// Whether \p text is well-formed UTF-8 throughout.
KAVI_API bool isUtf8(std::string_view text);

}  // namespace host::core
