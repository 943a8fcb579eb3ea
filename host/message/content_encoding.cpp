#include "host/message/content_encoding.h"

#include <algorithm>

#include "library/platform/ov_msg_error.h"

namespace host::message {

void LineFacts::add(std::string_view bytes) {
  const std::size_t last = bytes.find_last_not_of('\r');
  hasBareCr =
      hasBareCr || message::hasBareCr(bytes.substr(0, last + 1)) ||
      (endedInCr_ && last != std::string_view::npos && bytes[0] != '\n' && bytes[0] != '\r');
  isAscii = isAscii && message::isAscii(bytes);
  hasNul = hasNul || bytes.find('\0') != std::string_view::npos;
  while (!bytes.empty()) {
    const std::size_t lf = bytes.find('\n');
    const bool isLine = lf != std::string_view::npos;
    open_ += isLine ? lf : bytes.size();
    // The CR of a break is not counted; one in front of a piece's end may be the next one's.
    const bool hasCr = isLine && (lf > 0 ? bytes[lf - 1] == '\r' : endedInCr_);
    longestLine = std::max(longestLine, open_ - (hasCr ? 1 : 0));
    if (!isLine) break;
    open_ = 0;
    bytes.remove_prefix(lf + 1);
  }
  endedInCr_ = bytes.ends_with('\r');
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
