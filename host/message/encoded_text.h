// Reading RFC 2047 encoded words.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace host::message {

/// An encoded word of a text.
struct EncodedWord {
  std::size_t begin;
  std::size_t end;
  std::string charset;  ///< lower case, without language (RFC 2231 section 5)
  bool isBase64;
  std::string_view payload;  ///< borrowed from the text
};

/// The first encoded word at or behind \p from.
std::optional<EncodedWord> findEncodedWord(std::string_view text, std::size_t from = 0);

/// \p value with its encoded words decoded, in UTF-8. Bytes outside ASCII that no word explains are
/// kept when they are UTF-8, and are read as ISO-8859-1 else. Read up to
/// `mime::kMaxInterpretedBytes`.
std::string decodedText(std::string_view value);

/// The charset of the first encoded word; empty without a word. UTF-8 for words in UTF-16 and the
/// like, whose text no C string can hold.
std::string charsetOfWords(std::string_view value);

/// The same as bytes of the charset of its words; \p value itself without a word. Text in
/// other charsets is converted, "?" for what does not fit; bytes that are not text in the charset
/// they are declared in stay as they are.
std::string decodedBytes(std::string_view value);

}  // namespace host::message
