// Content transfer encodings (RFC 2045 section 6, and uuencode).
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

class OvMsgSink;

namespace host::message {

enum class TransferEncoding : int {
  SevenBit,
  EightBit,
  Binary,
  QuotedPrintable,
  Base64,
  UuEncode,
  Unknown
};

/// \p value  of a Content-Transfer-Encoding field, unfolded; comments behind the token are ignored.
TransferEncoding transferEncodingOf(std::string_view value);

/// The name as it is written in a field.
std::string_view nameOf(TransferEncoding encoding);

/// True when the transferred bytes are the content. An unknown encoding is no identity.
bool isIdentity(TransferEncoding encoding);

/// Writes \p body decoded, in pieces; bytes under an unknown encoding as they stand.
/// \return false when \p sink refused one.
bool decodeBody(std::string_view body, TransferEncoding encoding, OvMsgSink& sink);

/// Where in \p body, which is quoted-printable and decodes to \p size bytes, the decoded byte
/// \p offset begins, or the end: behind soft line breaks in front of it. Nothing when no place is
/// between it and the byte before, as in an escape that is none.
std::optional<std::size_t> quotedPrintablePlace(std::string_view body, std::size_t size,
                                                std::size_t offset);

/// \p content encoded in quoted-printable, base64 or identity, in lines of at most 76 characters
/// that end in \p lineBreak. Line breaks of a text are written as such, others are encoded.
std::string encodeBody(std::string_view content, TransferEncoding encoding, bool isText,
                       std::string_view lineBreak);

}  // namespace host::message
