#include "host/message/text_transfer.h"

#include <algorithm>
#include <utility>

#include "host/message/ascii.h"
#include "host/message/content_encoding.h"
#include "host/message/entity.h"
#include "host/message/sinks.h"
#include "host/message/tree_editor.h"

namespace host::message {

namespace {

bool isBase64Digit(char c) {
  return (lowered(c) >= 'a' && lowered(c) <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

/// Whether every reader decodes \p body alike: nothing but its alphabet, padding only at the end,
/// whole groups.
bool isStrictBase64(std::string_view body) {
  std::size_t count = 0;
  std::size_t padding = 0;
  for (const char c : body) {
    if (isSpace(c)) continue;
    ++count;
    if (c == '=') {
      ++padding;
    } else if (!isBase64Digit(c) || padding != 0) {
      return false;
    }
  }
  return padding <= 2 && count % 4 == 0;
}

/// The length of the lines of base64 in front of the first that is something else; all of \p body
/// where such a line is followed by base64 again.
std::size_t base64Length(std::string_view body) {
  constexpr std::size_t kDataLine = 40;
  std::size_t end = std::string_view::npos;
  for (std::size_t at = 0; at < body.size();) {
    const std::size_t lf = body.find('\n', at);
    const std::string_view line = trimmed(body.substr(at, lf - at));
    const bool isData =
        std::all_of(line.begin(), line.end(), [](char c) { return isBase64Digit(c) || c == '='; });
    if (!isData) end = std::min(end, at);
    if (isData && end != std::string_view::npos && line.size() >= kDataLine) return body.size();
    at = lf == std::string_view::npos ? body.size() : lf + 1;
  }
  if (end >= body.size()) return body.size();
  while (end > 0 && isSpace(body[end - 1])) --end;
  return end;
}

std::string_view withoutFinalBreak(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  if (text.ends_with('\r')) text.remove_suffix(1);
  return text;
}

}  // namespace

TransferredText::TransferredText(const Entity& part)
    : part_(part),
      body_(part.body()),
      content_(body_),
      encoding_(transferEncodingOf(part.transferEncoding())),
      lineBreak_(part.lineBreakOfBody()),
      transferBreak_(lineBreak_.text()) {
  if (encoding_ == TransferEncoding::Unknown && !part.transferEncoding().starts_with("x-")) {
    encoding_ = isAscii(body_) ? TransferEncoding::SevenBit : TransferEncoding::EightBit;
  }
  if (!isIdentity(encoding_)) decode();
}

void TransferredText::decode() {
  if (encoding_ == TransferEncoding::Base64) {
    const std::size_t length = base64Length(body_);
    footer_ = body_.substr(length);
    body_ = body_.substr(0, length);
    readable_ = isStrictBase64(body_) && (footer_.empty() || !body_.empty());
    lineBreak_ = LineBreak{};
  } else {
    readable_ = encoding_ == TransferEncoding::QuotedPrintable;
  }
  if (!readable_) return;
  StringSink sink(decoded_);
  decodeBody(body_, encoding_, sink);
  content_ = decoded_;
}

bool TransferredText::fits(std::string_view body, TransferEncoding encoding) {
  if (encoding == TransferEncoding::Base64) return true;
  LineFacts facts;
  facts.add(body);
  if (!facts.fitsLines() || (encoding == TransferEncoding::SevenBit && !facts.isAscii)) {
    return false;
  }
  return true;
}

std::string TransferredText::rewritten(const EditedText& edited, TransferEncoding& encoding) const {
  encoding = encoding_;
  std::optional<Splice> splice;
  if (edited.insertedAt && isIdentity(encoding_)) {
    splice = spliced(body_, *edited.insertedAt, edited.bytes);
  } else if (edited.insertedAt && encoding_ == TransferEncoding::QuotedPrintable) {
    splice = splicedQuotedPrintable(*edited.insertedAt, edited.bytes);
  }
  const Boundaries boundaries = boundariesAround(&part_);
  if (splice && fits(splice->body, encoding) && !holdsDelimiter(splice->newLines(), boundaries)) {
    return std::move(splice->body);
  }

  const std::string whole =
      edited.insertedAt ? spliced(content_, *edited.insertedAt, edited.bytes).body : edited.bytes;
  const bool isLines = whole.find('\0') == std::string::npos;
  if (!isLines) encoding = TransferEncoding::Base64;
  std::string result = encoded(whole, encoding);
  if (!fits(result, encoding)) {
    encoding = TransferEncoding::QuotedPrintable;
    result = encoded(whole, encoding);
  }
  if (encoding != TransferEncoding::Base64 && holdsDelimiter(result, boundaries)) {
    encoding = TransferEncoding::Base64;
    result = encoded(whole, encoding);
  }
  return result;
}

// The others were no delimiters before and are none now.
std::string_view TransferredText::Splice::newLines() const {
  const std::string_view all(body);
  const std::size_t before = begin == 0 ? std::string_view::npos : all.rfind('\n', begin - 1);
  const std::size_t first = before == std::string_view::npos ? 0 : before + 1;
  return all.substr(first, std::min(all.find('\n', end), all.size()) - first);
}

TransferredText::Splice TransferredText::spliced(std::string_view body, std::size_t at,
                                                 std::string_view text) {
  Splice splice{{}, at, at + text.size()};
  splice.body.reserve(body.size() + text.size());
  splice.body.append(body.substr(0, at)).append(text).append(body.substr(at));
  return splice;
}

std::optional<TransferredText::Splice> TransferredText::splicedQuotedPrintable(
    std::size_t at, std::string_view text) const {
  const auto place = quotedPrintablePlace(body_, content_.size(), at);
  if (!place) return std::nullopt;
  const std::string_view before = body_.substr(0, *place);
  const std::string_view behind = body_.substr(*place);
  const std::string softBreak = std::string("=").append(transferBreak_);
  std::string middle = encoded(text, TransferEncoding::QuotedPrintable);
  // A blank in front of a line break is no part of the text.
  const bool startsLine = before.empty() || before.ends_with('\n');
  const bool breaksLine = text.starts_with('\n') || text.starts_with("\r\n");
  if (!startsLine && (!breaksLine || isBlank(before.back()))) {
    middle.insert(middle.begin(), softBreak.begin(), softBreak.end());
  }
  if (!behind.empty() && !middle.ends_with('\n')) middle += softBreak;
  return spliced(body_, *place, middle);
}

std::string TransferredText::encoded(std::string_view content, TransferEncoding encoding) const {
  if (isIdentity(encoding)) return std::string(content);
  const bool isText = encoding == TransferEncoding::QuotedPrintable;
  std::string result = encodeBody(content, encoding, isText, transferBreak_);
  if (isText && !content.ends_with('\n')) {
    // The encoder ends an open line with a soft break.
    const std::string_view open = withoutFinalBreak(result);
    if (open.ends_with('=')) result.resize(open.size() - 1);
  } else if (!isText && !body_.ends_with('\n')) {
    result.resize(withoutFinalBreak(result).size());
  }
  if (!isText) result += footer_;
  return result;
}

}  // namespace host::message
