// Writers of the fields in the settings strings of named-object records.
#pragma once

#include <string>

namespace library {

/// Appends \p value as `_get_string_data` reads it: decimal length, ":", the bytes, ":".
void appendStringField(std::string& text, const std::string& value);

/// Appends \p value as `_get_numeric_data` reads it: decimal digits, ":".
void appendNumericField(std::string& text, unsigned int value);

}  // namespace library
