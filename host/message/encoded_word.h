// Writing text that is not ASCII into header fields (RFC 2047).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace host::message {

/// Bounds of RFC 2047 section 2.
inline constexpr std::size_t kMaxEncodedWord = 75;
inline constexpr std::size_t kMaxEncodedLine = 76;

/// The value of a field named \p fieldName, folded, for \p text (bytes in \p charset). ASCII words
/// stay as they are; what is not ASCII becomes encoded words of at most 75 characters in \p charset
/// on lines of at most 76, never splitting a character. In fields that hold addresses only display
/// names and comments are encoded. ASCII that no fold can bring within a line is encoded, too,
/// where the field holds text or the word is of a display name; an address that is too long stays.
/// \return 0 or an OVMSGERR code.
int encodeFieldValue(std::string_view fieldName, std::string_view text, std::string_view charset,
                     std::string_view lineBreak, std::string& out);

/// All of \p text (bytes in \p charset) as encoded words separated by one space; ASCII text that
/// cannot be taken for an encoded word, and holds neither double quote nor backslash, is returned
/// as it is: it can stand between quotes.
int encodeWords(std::string_view text, std::string_view charset, std::string& out);

/// Whether fields of that name hold addresses.
bool holdsAddresses(std::string_view fieldName);

/// Whether a word of \p text is so long that no fold brings it within a line of 998 characters
/// (RFC 5322 section 2.1.1).
bool hasWordBeyondLine(std::string_view text);

/// \p value with folds put in at white space where a line of the field would be longer than
/// RFC 5322 section 2.1.1 allows, or, with encoded words in it, than RFC 2047 does.
std::string foldedValue(std::string_view fieldName, std::string_view value,
                        std::string_view lineBreak);

}  // namespace host::message
