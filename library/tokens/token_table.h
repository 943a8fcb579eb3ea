// The `%TOKEN%` placeholders that administrators write in templates.
#pragma once

#include <cstddef>
#include <string>

#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"

class OvMsgMailMessage;

namespace library {

/// Computes the value of a token that the scanner did not fill in.
/// \param value  empty on entry; receives the value. What is written counts, also when the result
///   is false.
/// \return false when there is no value to be had.
using TokenValueFunction = bool (*)(Kavi::TokenMap<Kavi::ScanToken>& tokens,
                                    const OvMsgMailMessage& msg, std::string& value);

/// Size in bytes of a token's text, its NUL included.
inline constexpr std::size_t kTokenTextSize = 32;

/// One row of the token table. A row with an empty text ends the table.
struct TokenRow {
  Kavi::ScanToken token;
  char text[kTokenTextSize];    ///< with both "%", padded with NULs
  TokenValueFunction function;  ///< null: the value is the scanner's to give
};

/// The first row of the token table, in the order in which tokens are listed.
const TokenRow* tokenTable();

}  // namespace library
