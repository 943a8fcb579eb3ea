// Bringing an edited text back under a transfer encoding.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/message/ascii.h"
#include "host/message/text_charset.h"
#include "host/message/transfer_encoding.h"

namespace host::message {

class Entity;

/// The body of a part, decoded as far as that is needed, and strictly.
class TransferredText {
 public:
  explicit TransferredText(const Entity& part);

  /// False when the body cannot be decoded without a doubt: under a private encoding, or in base64
  /// with other bytes among it. Lines behind the base64, which mailing lists add, are left there.
  /// An encoding that is none is what everybody reads it as: lines.
  bool isReadable() const { return readable_; }
  /// Borrowed from this object, or from the message.
  std::string_view content() const { return content_; }
  TransferEncoding encoding() const { return encoding_; }
  /// The line break for a content that has none itself.
  LineBreak lineBreak() const { return lineBreak_; }

  /// The body with an edited content: in the encoding it had if that can carry it in lines of at
  /// most 998 bytes, else in quoted-printable, or in base64 what is no text of lines. Of an
  /// insertion into lines or quoted-printable all other bytes stay.
  std::string rewritten(const EditedText& edited, TransferEncoding& encoding) const;

 private:
  /// A body with something put in, from \p begin to \p end.
  struct Splice {
    std::string body;
    std::size_t begin;
    std::size_t end;
    /// The lines that are not those of before.
    std::string_view newLines() const;
  };

  void decode();
  static Splice spliced(std::string_view body, std::size_t at, std::string_view text);
  std::optional<Splice> splicedQuotedPrintable(std::size_t at, std::string_view text) const;
  std::string encoded(std::string_view content, TransferEncoding encoding) const;
  static bool fits(std::string_view body, TransferEncoding encoding);

  const Entity& part_;
  std::string_view body_;
  std::string decoded_;
  std::string_view content_;
  TransferEncoding encoding_;
  std::string_view footer_ = {};  ///< lines behind a body in base64
  LineBreak lineBreak_ = {};
  std::string_view transferBreak_;  ///< of the lines of the body
  bool readable_ = true;
};

}  // namespace host::message
