// Conversion between charsets.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "library/platform/api.h"

namespace host::message {

/// What becomes of a byte or character that cannot be converted.
enum class OnMisfit : int {
  Fail,
  QuestionMark,
};

/// Converts \p text between charsets named as in mail (any registered alias, case ignored).
/// \param undefined    bytes that \p from does not define
/// \param unencodable  characters that \p to cannot carry
/// \return 0 or an OVMSGERR code; then \p out is empty.
int convertCharset(std::string_view text, std::string_view from, std::string_view to,
                   OnMisfit undefined, OnMisfit unencodable, std::string& out);

KAVI_API bool isKnownCharset(std::string_view name);
bool isUtf8(std::string_view text);

/// Whether \p name is a charset whose bytes are all below 0x80 and not all what ASCII says.
bool isSevenBitNonAscii(std::string_view name);

/// Whether ASCII characters, and nothing else, are the ASCII bytes in \p name: where a text can be
/// cut at them, and searched for them, without reading it.
bool isAsciiSuperset(std::string_view name);

/// Whether \p name is known and its text can stand in a header, or in a C string: a letter of ASCII
/// is its own byte. Not so in UTF-16, UTF-32 and EBCDIC.
bool isForHeaders(std::string_view name);

/// A text as characters, with the byte that each UTF-16 unit begins at.
struct DecodedText {
  std::u16string characters;
  std::vector<std::int32_t> offsets;
};
/// Reads \p text, of less than two gigabytes, strictly.
/// \return 0 or an OVMSGERR code; then \p out is empty.
int decodeText(std::string_view text, std::string_view charset, DecodedText& out);

/// \p utf8 in \p charset, if that gives the same characters again when it is read.
/// \return false when the charset is unknown or cannot carry the text; then \p out is empty.
bool encodeExactly(std::string_view utf8, std::string_view charset, std::string& out);

/// Writes characters in one charset, again and again; for cutting a text into encoded words.
class CharsetEncoder {
 public:
  explicit CharsetEncoder(std::string_view charset);
  ~CharsetEncoder();
  CharsetEncoder(const CharsetEncoder&) = delete;
  CharsetEncoder& operator=(const CharsetEncoder&) = delete;

  bool isValid() const { return converter_ != nullptr; }
  /// \p text in the charset, in its initial shift state at both ends.
  /// \return 0 or an OVMSGERR code.
  int encode(std::u16string_view text, std::string& out);

 private:
  void* converter_;
};

/// \p text as UTF-8; a lone surrogate becomes U+FFFD.
std::string utf8Of(std::u16string_view text);
/// \p utf8 as UTF-16; malformed bytes become U+FFFD.
std::u16string utf16Of(std::string_view utf8);

}  // namespace host::message
