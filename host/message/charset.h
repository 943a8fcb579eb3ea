// Conversion between charsets.
#pragma once

#include <memory>
#include <string>
#include <string_view>

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

bool isKnownCharset(std::string_view name);
bool isUtf8(std::string_view text);

/// Whether \p name is a charset whose bytes are all below 0x80 and not all what ASCII says.
bool isSevenBitNonAscii(std::string_view name);

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

/// \p utf8 as UTF-16; malformed bytes become U+FFFD.
std::u16string utf16Of(std::string_view utf8);

}  // namespace host::message
