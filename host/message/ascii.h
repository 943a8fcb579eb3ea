// Byte-wise text helpers that do not depend on a locale.
#pragma once

#include <string>
#include <string_view>

#include "library/platform/api.h"

namespace host::message {

inline bool isBlank(char c) { return c == ' ' || c == '\t'; }
inline bool isSpace(char c) { return isBlank(c) || c == '\r' || c == '\n'; }
inline char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
/// A byte of a field name (RFC 5322 section 3.6.8, "ftext").
inline bool isFieldNameChar(char c) { return c > ' ' && c < 127 && c != ':'; }
inline bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

KAVI_API bool equalsIgnoreCase(std::string_view left, std::string_view right);
bool startsWithIgnoreCase(std::string_view text, std::string_view prefix);
KAVI_API std::string lowered(std::string_view text);
/// \p text without white space and line breaks at its ends.
std::string_view trimmed(std::string_view text);
bool isAscii(std::string_view text);
KAVI_API bool isFieldName(std::string_view name);
/// Whether \p text holds a CR that no line break belongs to; several before one LF are one.
bool hasBareCr(std::string_view text);

/// A style of line break.
struct LineBreak {
  bool crLf = true;
  std::string_view text() const { return crLf ? std::string_view("\r\n") : std::string_view("\n"); }
};
/// The style of the first line break in \p bytes; \p fallback when there is none.
LineBreak lineBreakOf(std::string_view bytes, LineBreak fallback);
/// \p text, whose line breaks are LF, with \p lineBreak for each.
std::string withLineBreak(std::string_view text, std::string_view lineBreak);

}  // namespace host::message
