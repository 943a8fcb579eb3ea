#include "host/message/transfer_encoding.h"

#include <gmime/gmime.h>

#include <algorithm>
#include <array>
#include <vector>

#include "host/message/ascii.h"
#include "host/message/mime_values.h"
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
  return decodeRun(body, {}, encoding, sink) &&
         (rest.empty() || sink.write(rest.data(), rest.size()));
}

std::optional<std::size_t> quotedPrintablePlace(std::string_view body, std::size_t offset) {
  mime::initialise();
  constexpr std::size_t kStep = 512;
  GMimeEncoding state;
  g_mime_encoding_init_decode(&state, GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
  std::array<char, kStep * 3 + 16> piece{};
  std::size_t decoded = 0;
  std::size_t at = 0;
  // Whole steps up to the place, then byte by byte.
  while (at < body.size() && decoded < offset) {
    const GMimeEncoding before = state;
    const std::string_view input = body.substr(at, kStep);
    const std::size_t count =
        g_mime_encoding_step(&state, input.data(), input.size(), piece.data());
    if (decoded + count >= offset) {
      state = before;
      break;
    }
    decoded += count;
    at += input.size();
  }
  while (at < body.size() && decoded < offset) {
    decoded += g_mime_encoding_step(&state, body.data() + at, 1, piece.data());
    ++at;
  }
  if (decoded != offset) return std::nullopt;
  // Soft line breaks: what decodes to nothing.
  while (at < body.size() && body[at] == '=') {
    std::size_t next = at + 1;
    while (next < body.size() && isBlank(body[next])) ++next;
    if (next < body.size() && body[next] == '\r') ++next;
    if (next >= body.size() || body[next] != '\n') break;
    at = next + 1;
  }
  return at;
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
  GMimeEncoding state;
  g_mime_encoding_init_encode(&state, libraryEncoding(encoding));
  std::string encoded(g_mime_encoding_outlen(&state, content.size()), '\0');
  encoded.resize(g_mime_encoding_flush(&state, content.data(), content.size(), encoded.data()));
  return withLineBreak(encoded, lineBreak);
}

}  // namespace host::message
