// Readers of the fields in the settings strings of named-object records.
#pragma once

#include <string>

namespace library {

// Both read a NUL-terminated text at `cursor` and never look behind its NUL, which is the first NUL
// there: a field whose announced length reaches past a NUL fails.

/// Reads a number as strtoul reads it, and steps over the one character behind it, whatever that
/// is; at the end of the text the cursor stays on the NUL.
/// \param value   receives the number; 0 for a text without digits.
/// \param cursor  moved behind the separator.
/// \param end     receives the first character that is not part of the number.
/// \return false only for a null cursor.
bool _get_numeric_data(long& value, const char*& cursor, char*& end);

/// Reads a text of announced length: decimal length, one character, the bytes, ":".
/// \param out        receives the bytes; left alone on failure.
/// \param cursor     moved behind the closing ":"; left alone on failure.
/// \param end        receives the position of the closing ":".
/// \param remaining  in: how many bytes are left at the cursor. Only the digits of the length are
///   taken off it (also on failure), neither the bytes nor the separators: callers count on that.
/// \return false when there is no text, when the length is not below what remains, or when the
///   bytes are not followed by ":".
bool _get_string_data(std::string& out, const char*& cursor, char*& end, unsigned int& remaining);

}  // namespace library
