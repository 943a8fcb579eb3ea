#include "host/message/content_encoding.h"

#include <algorithm>

#include "library/platform/ov_msg_error.h"

namespace host::message {

void LineFacts::add(std::string_view bytes) {
  std::size_t length = 0;
  for (const char c : bytes) {
    isAscii = isAscii && message::isAscii(c);
    hasNul = hasNul || c == '\0';
    length = c == '\n' || c == '\r' ? 0 : length + 1;
    longestLine = std::max(longestLine, length);
  }
}

int encodeContent(const Entity& place, std::string_view lineBreak, const NewContent& content,
                  std::string& body, TransferEncoding& encoding) {
  const bool isText = startsWithIgnoreCase(content.contentType, "text/");
  if (content.transferEncoding == nullptr) {
    LineFacts facts;
    facts.add(content.bytes);
    const bool isPlain = isText && facts.isAscii && facts.fitsLines();
    encoding = isPlain ? TransferEncoding::SevenBit : TransferEncoding::Base64;
  } else {
    encoding = transferEncodingOf(content.transferEncoding);
  }
  if (encoding == TransferEncoding::Unknown || encoding == TransferEncoding::UuEncode) {
    return OVMSGERR::InvalidArgument;
  }
  body = encodeBody(content.bytes, encoding, isText, lineBreak);
  if (encoding == TransferEncoding::SevenBit || encoding == TransferEncoding::EightBit) {
    LineFacts facts;
    facts.add(body);
    if (!facts.fitsLines()) return OVMSGERR::UnencodableText;
    if (encoding == TransferEncoding::SevenBit && !facts.isAscii) return OVMSGERR::UnencodableText;
  }
  if (encoding != TransferEncoding::Base64 && holdsDelimiter(body, boundariesAround(&place))) {
    encoding = TransferEncoding::Base64;
    body = encodeBody(content.bytes, encoding, isText, lineBreak);
  }
  return OVMSGERR::Ok;
}

}  // namespace host::message
