#include "host/message/encoded_text.h"

#include <algorithm>
#include <vector>

#include "host/message/ascii.h"
#include "host/message/charset.h"
#include "host/message/mime_values.h"
#include "host/message/sinks.h"
#include "host/message/transfer_encoding.h"
#include "library/platform/ov_msg_error.h"

namespace host::message {

namespace {

/// A stretch of a text in one charset; an empty charset for what stood there plainly.
struct Run {
  std::string charset;
  std::string bytes;
};

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char low = lowered(c);
  return low >= 'a' && low <= 'f' ? low - 'a' + 10 : -1;
}

void appendQuoted(std::string_view payload, std::string& out) {
  for (std::size_t i = 0; i < payload.size(); ++i) {
    if (payload[i] == '_') {
      out += ' ';
    } else if (payload[i] == '=' && i + 2 < payload.size() && hexValue(payload[i + 1]) >= 0 &&
               hexValue(payload[i + 2]) >= 0) {
      out += static_cast<char>(hexValue(payload[i + 1]) << 4 | hexValue(payload[i + 2]));
      i += 2;
    } else {
      out += payload[i];
    }
  }
}

// Each payload is decoded for itself, before neighbours are joined: senders cut characters in two
// and pad every word, and the MIME library, which joins first, stops at the first padding.
void appendDecoded(const EncodedWord& word, std::string& out) {
  if (word.isBase64) {
    StringSink sink(out);
    decodeBody(word.payload, TransferEncoding::Base64, sink);
  } else {
    appendQuoted(word.payload, out);
  }
}

std::vector<Run> runsOf(std::string_view text) {
  text = text.substr(0, mime::kMaxInterpretedBytes);
  std::vector<Run> runs;
  std::size_t at = 0;
  bool behindWord = false;
  for (auto word = findEncodedWord(text); word; word = findEncodedWord(text, at)) {
    const std::string_view between = text.substr(at, word->begin - at);
    const bool isJoin = behindWord && trimmed(between).empty();
    if (!isJoin && !between.empty()) runs.push_back({{}, std::string(between)});
    if (!isJoin || runs.back().charset != word->charset) runs.push_back({word->charset, {}});
    appendDecoded(*word, runs.back().bytes);
    at = word->end;
    behindWord = true;
  }
  if (at < text.size()) runs.push_back({{}, std::string(text.substr(at))});
  return runs;
}

std::string utf8Of(const Run& run) {
  std::string utf8;
  if (!run.charset.empty() &&
      convertCharset(run.bytes, run.charset, "utf-8", OnMisfit::QuestionMark,
                     OnMisfit::QuestionMark, utf8) == OVMSGERR::Ok) {
    return utf8;
  }
  if (isUtf8(run.bytes)) return run.bytes;
  convertCharset(run.bytes, "iso-8859-1", "utf-8", OnMisfit::QuestionMark, OnMisfit::QuestionMark,
                 utf8);
  return utf8;
}

}  // namespace

std::optional<EncodedWord> findEncodedWord(std::string_view text, std::size_t from) {
  for (std::size_t at = text.find("=?", from); at != std::string_view::npos;
       at = text.find("=?", at + 1)) {
    const std::size_t charsetBegin = at + 2;
    std::size_t p = charsetBegin;
    while (p < text.size() && mime::isTokenChar(text[p])) ++p;
    if (p == charsetBegin || p + 3 > text.size() || text[p] != '?' || text[p + 2] != '?') continue;
    const char encoding = lowered(text[p + 1]);
    if (encoding != 'b' && encoding != 'q') continue;
    // White space inside a word is not allowed, yet every reader decodes such words.
    const std::size_t end = text.find("?=", p + 3);
    if (end == std::string_view::npos) return std::nullopt;
    const std::string_view charset = text.substr(charsetBegin, p - charsetBegin);
    return EncodedWord{at, end + 2, lowered(charset.substr(0, charset.find('*'))), encoding == 'b',
                       text.substr(p + 3, end - p - 3)};
  }
  return std::nullopt;
}

std::string decodedText(std::string_view value) {
  std::string text;
  for (const Run& run : runsOf(value)) text += utf8Of(run);
  std::replace(text.begin(), text.end(), '\0', ' ');
  return text;
}

std::string charsetOfWords(std::string_view value) {
  const auto word = findEncodedWord(value);
  if (!word) return {};
  return isKnownCharset(word->charset) && !isForHeaders(word->charset) ? "utf-8" : word->charset;
}

std::string decodedBytes(std::string_view value) {
  const std::string charset = charsetOfWords(value);
  if (charset.empty()) return std::string(value);
  if (const auto word = findEncodedWord(value); word->charset != charset) {
    return decodedText(value);
  }
  const std::vector<Run> runs = runsOf(value);
  // Bytes of a charset with shift states do not join; those of others are given as they came.
  const bool joins = !isSevenBitNonAscii(charset);
  std::string result;
  for (const Run& run : runs) {
    const bool isPlain = run.charset.empty() && isAscii(run.bytes);
    std::string bytes;
    if (!(joins && (isPlain || run.charset == charset)) &&
        convertCharset(utf8Of(run), "utf-8", charset, OnMisfit::QuestionMark,
                       OnMisfit::QuestionMark, bytes) == OVMSGERR::Ok) {
      result += bytes;
    } else {
      result += run.bytes;
    }
  }
  return result;
}

}  // namespace host::message
