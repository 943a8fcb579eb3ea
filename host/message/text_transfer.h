// Bringing an edited text back under a transfer encoding.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/message/text_charset.h"
#include "host/message/transfer_encoding.h"

namespace host::message {

class Entity;

/// The body of a part, decoded as far as that is needed, and strictly.
class TransferredText {
 public:
  explicit TransferredText(const Entity& part);

  /// False when the body cannot be decoded without a doubt: under an encoding that is unknown, or
  /// in base64 with other bytes among it.
  bool isReadable() const { return readable_; }
  /// Borrowed from this object, or from the message.
  std::string_view content() const { return content_; }
  TransferEncoding encoding() const { return encoding_; }
  /// The line break that the text's lines end in.
  std::string_view lineBreak() const { return lineBreak_; }

  /// The body with an edited content: in the encoding it had if that can carry it in lines of at
  /// most 998 bytes, else in quoted-printable, or in base64 what is no text of lines. Of an
  /// insertion into lines or quoted-printable all other bytes stay.
  std::string rewritten(const EditedText& edited, TransferEncoding& encoding) const;

 private:
  std::string spliced(std::string_view body, std::size_t at, std::string_view text) const;
  std::optional<std::string> splicedQuotedPrintable(std::size_t at, std::string_view text) const;
  std::string encoded(std::string_view content, TransferEncoding encoding) const;
  bool fits(std::string_view body, TransferEncoding encoding) const;

  const Entity& part_;
  std::string_view body_;
  std::string decoded_;
  std::string_view content_;
  TransferEncoding encoding_;
  std::string_view lineBreak_;
  std::string_view transferBreak_;  ///< of the lines of the body
  bool readable_ = true;
};

}  // namespace host::message
