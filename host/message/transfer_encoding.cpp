#include "host/message/transfer_encoding.h"

#include <gmime/gmime.h>

#include <algorithm>
#include <array>
#include <vector>

#include "host/message/ascii.h"
#include "host/message/mime_values.h"
#include "host/message/sinks.h"
#include "library/platform/ov_msg_mail_message.h"

namespace host::message {

namespace {

constexpr std::size_t kPiece = std::size_t{64} * 1024;

struct Named {
  std::string_view name;
  TransferEncoding encoding;
};
constexpr std::array<Named, 10> kNames{{{"7bit", TransferEncoding::SevenBit},
                                        {"8bit", TransferEncoding::EightBit},
                                        {"binary", TransferEncoding::Binary},
                                        {"quoted-printable", TransferEncoding::QuotedPrintable},
                                        {"base64", TransferEncoding::Base64},
                                        {"x-uuencode", TransferEncoding::UuEncode},
                                        {"x-uue", TransferEncoding::UuEncode},
                                        {"uuencode", TransferEncoding::UuEncode},
                                        {"7-bit", TransferEncoding::SevenBit},
                                        {"8-bit", TransferEncoding::EightBit}}};

GMimeContentEncoding libraryEncoding(TransferEncoding encoding) {
  switch (encoding) {
    case TransferEncoding::QuotedPrintable:
      return GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE;
    case TransferEncoding::Base64:
      return GMIME_CONTENT_ENCODING_BASE64;
    case TransferEncoding::UuEncode:
      return GMIME_CONTENT_ENCODING_UUENCODE;
    default:
      return GMIME_CONTENT_ENCODING_DEFAULT;
  }
}

/// The encoded lines of a uuencoded body: what is behind its "begin" line.
std::string_view behindBeginLine(std::string_view body) {
  constexpr std::string_view kBegin = "begin ";
  std::size_t at = 0;
  while (at < body.size() && body.substr(at, kBegin.size()) != kBegin) {
    const std::size_t lf = body.find('\n', at);
    if (lf == std::string_view::npos) return body;
    at = lf + 1;
  }
  const std::size_t lf = body.find('\n', at);
  return at < body.size() && lf != std::string_view::npos ? body.substr(lf + 1) : body;
}

/// The value of a hexadecimal digit; -1 for another character.
int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  c = lowered(c);
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

/// The state of a body in quoted-printable that is being decoded. What stands for itself is handed
/// on as it is, and so are plain escapes; the library, which looks at every byte, sees the others.
class QuotedPrintableReader {
 public:
  explicit QuotedPrintableReader(std::string_view body) : body_(body) {
    g_mime_encoding_init_decode(&state_, GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
  }

  std::size_t at() const { return at_; }
  bool isAtEnd() const { return at_ >= body_.size(); }

  /// The next piece of the content: at most \p limit bytes that stand for themselves, or what one
  /// escape stands for. The view is valid until the next call.
  std::string_view next(std::size_t limit) {
    const std::size_t plain = std::min(body_.find('=', at_), body_.size()) - at_;
    if (plain != 0) {
      const std::string_view piece = body_.substr(at_, std::min(plain, limit));
      at_ += piece.size();
      return piece;
    }
    if (takeEscape()) return {escape_.data(), 1};
    // An escape is decided after three bytes; what is none may begin another one.
    std::size_t count = 0;
    do {
      count += g_mime_encoding_step(&state_, body_.data() + at_, 1, escape_.data() + count);
      ++at_;
    } while (at_ < body_.size() && state_.state != 0);
    return {escape_.data(), count};
  }

 private:
  /// Takes an escape that is one, which nearly all are. \return false with nothing taken.
  bool takeEscape() {
    if (body_.size() - at_ < 3) return false;
    const int high = hexValue(body_[at_ + 1]);
    const int low = hexValue(body_[at_ + 2]);
    if (high < 0 || low < 0) return false;
    escape_[0] = static_cast<char>(high * 16 + low);
    at_ += 3;
    return true;
  }

  std::string_view body_;
  std::size_t at_ = 0;
  GMimeEncoding state_;
  std::array<char, 64> escape_{};
};

bool decodeQuotedPrintable(std::string_view body, OvMsgSink& sink) {
  QuotedPrintableReader reader(body);
  std::string piece;
  piece.reserve(std::min(body.size(), kPiece + 64));
  while (!reader.isAtEnd()) {
    piece += reader.next(kPiece - piece.size());
    if (piece.size() < kPiece) continue;
    if (!sink.write(piece.data(), piece.size())) return false;
    piece.clear();
  }
  return piece.empty() || sink.write(piece.data(), piece.size());
}

std::optional<std::size_t> placeInQuotedPrintable(std::string_view body, std::size_t offset) {
  QuotedPrintableReader reader(body);
  std::size_t decoded = 0;
  while (decoded < offset && !reader.isAtEnd()) decoded += reader.next(offset - decoded).size();
  if (decoded != offset) return std::nullopt;
  std::size_t at = reader.at();
  while (body.substr(at, 2) == "=\n" || body.substr(at, 3) == "=\r\n") {
    at += body[at + 1] == '\n' ? 2 : 3;
  }
  return at;
}

/// Decodes \p body and \p ending, one behind the other, as the library does.
bool decodeRun(std::string_view body, std::string_view ending, TransferEncoding encoding,
               OvMsgSink& sink) {
  GMimeEncoding state;
  g_mime_encoding_init_decode(&state, libraryEncoding(encoding));
  std::vector<char> piece(g_mime_encoding_outlen(&state, std::min(body.size(), kPiece) + 8));
  while (!body.empty()) {
    const std::string_view input = body.substr(0, kPiece);
    body.remove_prefix(input.size());
    const std::size_t count =
        g_mime_encoding_step(&state, input.data(), input.size(), piece.data());
    if (count != 0 && !sink.write(piece.data(), count)) return false;
  }
  const std::size_t count =
      g_mime_encoding_flush(&state, ending.data(), ending.size(), piece.data());
  return count == 0 || sink.write(piece.data(), count);
}

/// The library ends at the first padding, and drops the last bytes where padding is missing.
/// Readers differ in both; nothing that one of them would see may stay undecoded.
bool decodeBase64(std::string_view body, OvMsgSink& sink) {
  while (!body.empty()) {
    const std::string_view run = body.substr(0, body.find('='));
    body.remove_prefix(run.size());
    while (!body.empty() && (body.front() == '=' || isSpace(body.front()))) body.remove_prefix(1);
    if (!decodeRun(run, "==", TransferEncoding::Base64, sink)) return false;
  }
  return true;
}

std::string encodeRun(std::string_view content, TransferEncoding encoding) {
  GMimeEncoding state;
  g_mime_encoding_init_encode(&state, libraryEncoding(encoding));
  std::string encoded(g_mime_encoding_outlen(&state, content.size()), '\0');
  encoded.resize(g_mime_encoding_flush(&state, content.data(), content.size(), encoded.data()));
  return encoded;
}

/// The library takes a CR in front of an LF for a part of the line break; here breaks are LF, and
/// such a CR belongs to the text.
std::string encodeQuotedLines(std::string_view content) {
  std::string encoded;
  for (std::size_t cr = content.find("\r\n"); cr != std::string_view::npos;
       cr = content.find("\r\n")) {
    encoded += encodeRun(content.substr(0, cr), TransferEncoding::QuotedPrintable) + "=0D";
    content.remove_prefix(cr + 1);
  }
  return encoded + encodeRun(content, TransferEncoding::QuotedPrintable);
}

}  // namespace

TransferEncoding transferEncodingOf(std::string_view value) {
  value = trimmed(value);
  const std::string_view token = value.substr(0, value.find_first_of(" \t;(,"));
  if (token.empty()) return TransferEncoding::SevenBit;
  for (const Named& entry : kNames) {
    if (equalsIgnoreCase(token, entry.name)) return entry.encoding;
  }
  return TransferEncoding::Unknown;
}

std::string_view nameOf(TransferEncoding encoding) {
  for (const Named& entry : kNames) {
    if (entry.encoding == encoding) return entry.name;
  }
  return {};
}

bool isIdentity(TransferEncoding encoding) {
  return encoding == TransferEncoding::SevenBit || encoding == TransferEncoding::EightBit ||
         encoding == TransferEncoding::Binary;
}

bool decodeBody(std::string_view body, TransferEncoding encoding, OvMsgSink& sink) {
  if (body.empty()) return true;
  if (isIdentity(encoding) || encoding == TransferEncoding::Unknown) {
    return sink.write(body.data(), body.size());
  }
  mime::initialise();
  if (encoding == TransferEncoding::Base64) return decodeBase64(body, sink);
  if (encoding == TransferEncoding::UuEncode) body = behindBeginLine(body);
  // An escape that the end cuts short stays as it is; the library would drop it.
  const bool isCut = encoding == TransferEncoding::QuotedPrintable && body.size() > 1 &&
                     body[body.size() - 2] == '=' && !isSpace(body.back());
  const std::string_view rest = body.substr(body.size() - (isCut ? 2 : 0));
  body.remove_suffix(rest.size());
  const bool isQuoted = encoding == TransferEncoding::QuotedPrintable;
  return (isQuoted ? decodeQuotedPrintable(body, sink) : decodeRun(body, {}, encoding, sink)) &&
         (rest.empty() || sink.write(rest.data(), rest.size()));
}

std::optional<std::size_t> quotedPrintablePlace(std::string_view body, std::size_t size,
                                                std::size_t offset) {
  mime::initialise();
  // Behind a line break nothing is pending: a place near the end is counted from there.
  const std::size_t behind = size - offset;
  if (behind * 4 + 1024 < body.size()) {
    const std::size_t lf = body.rfind('\n', body.size() - behind * 3 - 512);
    const std::size_t begin = lf == std::string_view::npos ? 0 : lf + 1;
    CountingSink counted;
    decodeQuotedPrintable(body.substr(begin), counted);
    if (begin != 0 && counted.count() >= behind) {
      const auto place = placeInQuotedPrintable(body.substr(begin), counted.count() - behind);
      return place ? std::optional(begin + *place) : std::nullopt;
    }
  }
  return placeInQuotedPrintable(body, offset);
}

std::string encodeBody(std::string_view content, TransferEncoding encoding, bool isText,
                       std::string_view lineBreak) {
  std::string canonical;
  if (isText) {
    // A text's line breaks are CRLF under base64 (RFC 2046 section 4.1.1), else those of the mail.
    const std::string_view newLine = encoding == TransferEncoding::Base64 ? "\r\n" : "\n";
    for (std::size_t i = 0; i < content.size(); ++i) {
      if (content[i] == '\r' && i + 1 < content.size() && content[i + 1] == '\n') continue;
      if (content[i] == '\n') {
        canonical += newLine;
      } else {
        canonical += content[i];
      }
    }
    content = canonical;
  }
  if (isIdentity(encoding) || encoding == TransferEncoding::Unknown) {
    return isText ? withLineBreak(content, lineBreak) : std::string(content);
  }
  mime::initialise();
  const bool isQuotedText = isText && encoding == TransferEncoding::QuotedPrintable;
  const std::string encoded =
      isQuotedText ? encodeQuotedLines(content) : encodeRun(content, encoding);
  return withLineBreak(encoded, lineBreak);
}

}  // namespace host::message
