// The charset of a text that is being edited.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/message/charset.h"
#include "host/message/insertion.h"

namespace host::message {

/// The content of a text part and what is known of its charset.
class TextContent {
 public:
  /// \param content   decoded from its transfer encoding; borrowed
  /// \param declared  the charset parameter; empty when there is none
  TextContent(std::string_view content, std::string_view declared, bool isHtml);

  std::string_view bytes() const { return bytes_; }
  bool isAscii() const { return isAscii_; }
  bool isHtml() const { return isHtml_; }
  /// The charset that the bytes are in; empty when nobody can know.
  const std::string& charset() const { return charset_; }
  /// Whether that has to be declared: the part declares none, one that nobody knows, or US-ASCII
  /// for what is none.
  bool needsDeclaration() const { return needsDeclaration_; }
  /// True when the content cannot be cut at its ASCII characters and cannot be read either.
  bool isOpaque() const { return isOpaque_; }

  /// For finding places: ASCII characters stand as themselves, others as any byte above. Of a
  /// charset in which ASCII is not ASCII, one byte to a UTF-16 unit.
  std::string_view view() const { return isBytewise_ ? bytes_ : std::string_view(view_); }
  /// Behind a byte order mark.
  std::size_t begin() const { return begin_; }
  /// Whether places in the view are places in the bytes.
  bool isBytewise() const { return isBytewise_; }
  const DecodedText& characters() const { return characters_; }

 private:
  void findCharset(std::string_view declared);
  void detect(std::string_view declared);
  void readCharacters();

  std::string_view bytes_;
  std::string charset_;
  std::string view_;
  DecodedText characters_;
  std::size_t begin_ = 0;
  bool isAscii_ = true;
  bool isHtml_;
  bool isBytewise_ = true;
  bool isOpaque_ = false;
  bool needsDeclaration_ = false;
};

/// A content after an edit.
struct EditedText {
  std::string bytes;    ///< all of it; of an insertion, what is put in
  std::string charset;  ///< to be declared; empty leaves the declaration alone
  std::optional<std::size_t> insertedAt = {};  ///< nothing else changed: the place in the old bytes
};

/// \p content with \p insertion, in the first that can carry both: its own charset, \p destination
/// (may be empty), UTF-8. An HTML text that cannot be read gets references for characters that are
/// not ASCII. Line breaks of the insertion become \p lineBreak.
/// \return nothing when the content cannot be read and so not be rewritten.
std::optional<EditedText> insertInto(const TextContent& content, const TextEdit& insertion,
                                     std::string_view destination, std::string_view lineBreak);

/// The charset to write \p utf8 in where nothing else stands: US-ASCII, \p destination if it can
/// carry it, else UTF-8.
std::string charsetFor(std::string_view utf8, std::string_view destination);

}  // namespace host::message
