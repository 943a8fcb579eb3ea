#include "host/message/text_transfer.h"

#include <algorithm>
#include <utility>

#include "host/message/ascii.h"
#include "host/message/content_encoding.h"
#include "host/message/entity.h"
#include "host/message/tree_editor.h"

namespace host::message {

namespace {

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
      continue;
    }
    const bool isDigit =
        (lowered(c) >= 'a' && lowered(c) <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
    if (!isDigit || padding != 0) return false;
  }
  return padding <= 2 && count % 4 == 0;
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
      transferBreak_(part.lineBreakOfBody().text()) {
  lineBreak_ = transferBreak_;
  if (isIdentity(encoding_)) return;
  readable_ = encoding_ == TransferEncoding::QuotedPrintable ||
              (encoding_ == TransferEncoding::Base64 && isStrictBase64(body_));
  if (!readable_) return;
  decoded_ = part.decodedContent();
  content_ = decoded_;
  if (encoding_ == TransferEncoding::Base64) {
    lineBreak_ = lineBreakOf(content_, LineBreak{}).text();
  }
}

bool TransferredText::fits(std::string_view body, TransferEncoding encoding) const {
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
  std::optional<std::string> body;
  if (edited.insertedAt && isIdentity(encoding_)) {
    body = spliced(body_, *edited.insertedAt, edited.bytes);
  } else if (edited.insertedAt && encoding_ == TransferEncoding::QuotedPrintable) {
    body = splicedQuotedPrintable(*edited.insertedAt, edited.bytes);
  }
  const Boundaries boundaries = boundariesAround(&part_);
  if (body && fits(*body, encoding) && !holdsDelimiter(*body, boundaries)) return std::move(*body);

  std::string whole =
      edited.insertedAt ? spliced(content_, *edited.insertedAt, edited.bytes) : edited.bytes;
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

std::string TransferredText::spliced(std::string_view body, std::size_t at,
                                     std::string_view text) const {
  std::string result;
  result.reserve(body.size() + text.size());
  return result.append(body.substr(0, at)).append(text).append(body.substr(at));
}

std::optional<std::string> TransferredText::splicedQuotedPrintable(std::size_t at,
                                                                   std::string_view text) const {
  const auto place = quotedPrintablePlace(body_, at);
  if (!place) return std::nullopt;
  const std::string_view before = body_.substr(0, *place);
  const std::string_view behind = body_.substr(*place);
  std::string middle = encoded(text, TransferEncoding::QuotedPrintable);
  // A blank in front of a line break is no part of the text.
  const bool startsLine = before.empty() || before.ends_with('\n');
  const bool breaksLine = text.starts_with('\n') || text.starts_with("\r\n");
  std::string result(before);
  result.reserve(body_.size() + middle.size() + 8);
  if (!startsLine && (!breaksLine || isBlank(before.back()))) {
    result.append("=").append(transferBreak_);
  }
  result += middle;
  if (!behind.empty() && !middle.ends_with('\n')) result.append("=").append(transferBreak_);
  return result.append(behind);
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
  return result;
}

}  // namespace host::message
