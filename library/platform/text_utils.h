// Small text operations of the platform.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "library/platform/api.h"
#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"

/// Splits \p text at every \p separator and appends the parts to \p parts; empty parts are
/// dropped, so that doubled and trailing separators are harmless.
KAVI_API void tokenize(const std::string& text, std::vector<std::string>& parts, char separator);

/// Compares at most \p length bytes of two NUL-terminated texts, ASCII letters without regard to
/// case. \return as strncmp.
KAVI_API int platform_icasencmp(const char* left, const char* right, std::size_t length);

/// Brings the stored value of \p token into its printable form in place: a list that the scanner
/// keeps with one item to a line becomes one line, items separated by ", ". A token without a
/// value is left alone.
KAVI_API void ReformatSpecialToken(Kavi::TokenMap<Kavi::ScanToken>& tokens, Kavi::ScanToken token);
