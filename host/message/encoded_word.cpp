#include "host/message/encoded_word.h"

#include <algorithm>
#include <vector>

#include "host/message/ascii.h"
#include "host/message/charset.h"
#include "host/message/mime_values.h"
#include "library/platform/ov_msg_error.h"

namespace host::message {

namespace {

constexpr std::size_t kMaxLine = 998;

/// A stretch of a value that is written in one way.
struct Segment {
  std::string space;  ///< white space in front of it
  std::string text;   ///< UTF-8
  bool encode = false;
};

bool looksEncoded(std::string_view text) { return text.find("=?") != std::string_view::npos; }

/// Whether a word does not fit even on a line of its own, behind the blank of a fold.
bool isBeyondLine(std::string_view word) { return word.size() + 1 > kMaxLine; }

bool needsEncoding(std::string_view word) { return !isAscii(word) || looksEncoded(word); }

/// Cuts one text into encoded words in one charset.
class WordCutter {
 public:
  WordCutter(std::string_view text, std::string_view charset)
      : encoder_(charset), charset_(charset), rest_(utf16Of(text)) {
    std::string bytes;
    code_ = encoder_.isValid() ? encoder_.encode(rest_, bytes) : OVMSGERR::UnknownCharset;
    useBase64_ = isSevenBitNonAscii(charset) || (bytes.size() + 2) / 3 * 4 <= quotedSize(bytes);
  }

  int code() const { return code_; }
  bool isDone() const { return begin_ >= rest_.size(); }
  /// The length of a word around no text.
  std::size_t overhead() const { return charset_.size() + 7; }
  /// A room in which any one character finds its place.
  std::size_t leastRoom() const { return overhead() + 24; }

  /// The next word, with as many characters as fit into \p room, at least one.
  std::string next(std::size_t room) {
    const std::size_t budget = room > overhead() ? room - overhead() : 0;
    std::string taken;
    std::size_t end = begin_;
    while (end < rest_.size()) {
      const std::size_t further = end + characterLength(end);
      std::string bytes;
      code_ = encoder_.encode(std::u16string_view(rest_).substr(begin_, further - begin_), bytes);
      if (code_ != OVMSGERR::Ok) break;
      std::string encoded = useBase64_ ? base64(bytes) : quoted(bytes);
      if (encoded.size() > budget && end > begin_) break;
      taken = std::move(encoded);
      end = further;
    }
    if (end == begin_) end = rest_.size();  // an error: the caller sees code()
    begin_ = end;
    return "=?" + std::string(charset_) + (useBase64_ ? "?B?" : "?Q?") + taken + "?=";
  }

 private:
  /// Code units of one character with the marks that belong to it, but no more than a word holds.
  std::size_t characterLength(std::size_t at) const {
    const bool pair = (rest_[at] & 0xFC00) == 0xD800 && at + 1 < rest_.size() &&
                      (rest_[at + 1] & 0xFC00) == 0xDC00;
    return pair ? 2 : 1;
  }

  static bool isPlain(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  }

  static std::size_t quotedSize(std::string_view bytes) {
    std::size_t size = 0;
    for (const char c : bytes) size += isPlain(c) || c == ' ' ? 1 : 3;
    return size;
  }

  static std::string quoted(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string result;
    for (const char c : bytes) {
      if (isPlain(c)) {
        result += c;
      } else if (c == ' ') {
        result += '_';
      } else {
        const auto byte = static_cast<unsigned char>(c);
        result += {'=', kDigits[byte >> 4], kDigits[byte & 15]};
      }
    }
    return result;
  }

  static std::string base64(std::string_view bytes) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string result;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
      const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
      unsigned group = 0;
      for (std::size_t k = 0; k < 3; ++k) {
        group = group << 8 | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0u);
      }
      for (std::size_t k = 0; k < 4; ++k) {
        result += k <= count ? kDigits[group >> (18 - 6 * k) & 63] : '=';
      }
    }
    return result;
  }

  CharsetEncoder encoder_;
  std::string_view charset_;
  std::u16string rest_;
  std::size_t begin_ = 0;
  bool useBase64_ = true;
  int code_ = OVMSGERR::Ok;
};

/// Writes segments on lines.
class FieldWriter {
 public:
  FieldWriter(std::string_view fieldName, std::string_view lineBreak)
      : lineBreak_(lineBreak), column_(fieldName.size() + 2) {}

  void writePlain(const Segment& segment) {
    if (column_ + segment.space.size() + segment.text.size() > kMaxEncodedLine) {
      breakLine(segment.space);
    } else {
      put(segment.space);
    }
    put(segment.text);
  }

  int writeEncoded(const Segment& segment, std::string_view charset) {
    WordCutter cutter(segment.text, charset);
    std::string space = segment.space;
    while (cutter.code() == OVMSGERR::Ok && !cutter.isDone()) {
      if (column_ + space.size() + cutter.leastRoom() > kMaxEncodedLine) {
        breakLine(space);
      } else {
        put(space);
      }
      put(cutter.next(std::min(kMaxEncodedWord, kMaxEncodedLine - column_)));
      // White space between two encoded words is none for the reader.
      space.assign(1, ' ');
      if (!cutter.isDone()) {
        breakLine(space);
        space.clear();
      }
    }
    return cutter.code();
  }

  std::string take() { return std::move(out_); }

 private:
  void put(std::string_view text) {
    out_ += text;
    column_ += text.size();
  }
  void breakLine(std::string_view space) {
    out_ += lineBreak_;
    column_ = 0;
    put(space.empty() ? std::string_view(" ") : space.substr(0, 8));
  }

  std::string_view lineBreak_;
  std::size_t column_;
  std::string out_;
};

std::size_t wordEnd(std::string_view text, std::size_t at) {
  while (at < text.size() && !isBlank(text[at])) ++at;
  return at;
}

std::size_t blankEnd(std::string_view text, std::size_t at) {
  while (at < text.size() && isBlank(text[at])) ++at;
  return at;
}

/// Words of unstructured text; neighbours that are to be encoded are one segment.
std::vector<Segment> textSegments(std::string_view text) {
  std::vector<Segment> segments;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t wordBegin = blankEnd(text, at);
    const std::size_t end = wordEnd(text, wordBegin);
    const std::string_view space = text.substr(at, wordBegin - at);
    const std::string_view word = text.substr(wordBegin, end - wordBegin);
    const bool encode = needsEncoding(word) || word.size() > kMaxEncodedWord;
    if (encode && !segments.empty() && segments.back().encode) {
      segments.back().text.append(space).append(word);
    } else {
      segments.push_back({std::string(space), std::string(word), encode});
    }
    at = end;
  }
  return segments;
}

/// The end of a quoted string, comment or bracketed address that begins at \p at.
std::size_t enclosedEnd(std::string_view text, std::size_t at) {
  const char close = text[at] == '"' ? '"' : text[at] == '(' ? ')' : '>';
  for (std::size_t i = at + 1; i < text.size(); ++i) {
    if (text[i] == '\\') {
      ++i;
    } else if (text[i] == close) {
      return i + 1;
    }
  }
  return text.size();
}

std::string withoutQuotes(std::string_view quoted) {
  std::string result;
  quoted.remove_prefix(1);
  if (!quoted.empty() && quoted.back() == '"') quoted.remove_suffix(1);
  for (std::size_t i = 0; i < quoted.size(); ++i) {
    if (quoted[i] == '\\' && i + 1 < quoted.size()) ++i;
    result += quoted[i];
  }
  return result;
}

/// Parts of an address list. Encoded words stand for words of a display name, so that quotes
/// around them go, and white space parts them from whatever is next to them (RFC 2047 section 5).
std::vector<Segment> addressSegments(std::string_view text) {
  std::vector<Segment> segments;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t begin = blankEnd(text, at);
    if (begin == text.size()) break;
    std::string space(text.substr(at, begin - at));
    const char first = text[begin];
    std::size_t end = begin + 1;
    Segment segment;
    if (first == '"' || first == '<' || first == '(') {
      end = enclosedEnd(text, begin);
      segment.text = text.substr(begin, end - begin);
      segment.encode = first == '"' && (!isAscii(segment.text) || hasWordBeyondLine(segment.text));
      if (segment.encode) segment.text = withoutQuotes(segment.text);
    } else if (std::string_view(",;:").find(first) == std::string_view::npos) {
      end = std::min(text.find_first_of(" \t,;:<(\"", begin), text.size());
      segment.text = text.substr(begin, end - begin);
      segment.encode = (!isAscii(segment.text) || isBeyondLine(segment.text)) &&
                       segment.text.find('@') == std::string::npos;
    } else if (space.empty() && !segments.empty() && !segments.back().encode) {
      segments.back().text += first;  // no fold parts it from what it stands behind
      at = end;
      continue;
    } else {
      segment.text = first;
    }
    const bool besideWord = !segments.empty() && (segments.back().encode || segment.encode);
    if (space.empty() && besideWord) space.assign(1, ' ');
    if (segment.encode && !segments.empty() && segments.back().encode) {
      segments.back().text += space + segment.text;
    } else {
      segment.space = std::move(space);
      segments.push_back(std::move(segment));
    }
    at = end;
  }
  return segments;
}

/// Whether a field is text for people in which any word may be an encoded one.
bool holdsText(std::string_view fieldName) {
  constexpr std::string_view kNames[] = {"subject", "comments", "keywords", "content-description"};
  return startsWithIgnoreCase(fieldName, "x-") ||
         std::any_of(std::begin(kNames), std::end(kNames),
                     [&](std::string_view name) { return equalsIgnoreCase(name, fieldName); });
}

int toUtf8(std::string_view text, std::string_view charset, std::string& utf8) {
  return convertCharset(text, charset, "utf-8", OnMisfit::Fail, OnMisfit::Fail, utf8);
}

}  // namespace

bool holdsAddresses(std::string_view fieldName) {
  constexpr std::string_view kNames[] = {
      "from",     "to",          "cc",           "bcc",       "sender",
      "reply-to", "return-path", "delivered-to", "errors-to", "disposition-notification-to"};
  if (startsWithIgnoreCase(fieldName, "resent-")) fieldName.remove_prefix(7);
  return std::any_of(std::begin(kNames), std::end(kNames),
                     [&](std::string_view name) { return equalsIgnoreCase(name, fieldName); });
}

int encodeFieldValue(std::string_view fieldName, std::string_view text, std::string_view charset,
                     std::string_view lineBreak, std::string& out) {
  std::string utf8;
  if (const int code = toUtf8(text, charset, utf8); code != OVMSGERR::Ok) return code;
  const bool isList = holdsAddresses(fieldName);
  const bool isTooLong = (isList || holdsText(fieldName)) && hasWordBeyondLine(utf8);
  // What only looks like an encoded word is encoded, or a reader would decode it. Addresses may
  // hold display names that a caller has encoded.
  if (isAscii(utf8) && !isTooLong && (!looksEncoded(utf8) || isList)) {
    out = foldedValue(fieldName, utf8, lineBreak);
    return OVMSGERR::Ok;
  }
  FieldWriter writer(fieldName, lineBreak);
  for (const Segment& segment : isList ? addressSegments(utf8) : textSegments(utf8)) {
    if (!segment.encode) {
      writer.writePlain(segment);
    } else if (const int code = writer.writeEncoded(segment, charset); code != OVMSGERR::Ok) {
      return code;
    }
  }
  out = foldedValue(fieldName, writer.take(), lineBreak);
  return OVMSGERR::Ok;
}

bool hasWordBeyondLine(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t begin = blankEnd(text, at);
    at = wordEnd(text, begin);
    if (isBeyondLine(text.substr(begin, at - begin))) return true;
  }
  return false;
}

int encodeWords(std::string_view text, std::string_view charset, std::string& out) {
  std::string utf8;
  if (const int code = toUtf8(text, charset, utf8); code != OVMSGERR::Ok) return code;
  out.clear();
  if (!needsEncoding(utf8) && utf8.find_first_of("\"\\") == std::string::npos) {
    out = utf8;
    return OVMSGERR::Ok;
  }
  // Room for a quotation mark and a space beside the word on a line of its own.
  constexpr std::size_t kRoom = kMaxEncodedWord - 3;
  WordCutter cutter(utf8, charset);
  while (cutter.code() == OVMSGERR::Ok && !cutter.isDone()) {
    if (!out.empty()) out += ' ';
    out += cutter.next(kRoom);
  }
  return cutter.code();
}

std::string foldedValue(std::string_view fieldName, std::string_view value,
                        std::string_view lineBreak) {
  const std::size_t limit = looksEncoded(value) ? kMaxEncodedLine : kMaxLine;
  std::string result;
  std::size_t column = fieldName.size() + 2;
  for (std::size_t at = 0; at < value.size();) {
    const std::size_t wordBegin = blankEnd(value, at);
    std::size_t end = wordBegin;
    while (end < value.size() && !isBlank(value[end]) && value[end] != '\r' && value[end] != '\n') {
      ++end;
    }
    if (column + (end - at) > limit && wordBegin > at && wordBegin < end && column > 1) {
      result += lineBreak;
      column = 0;
    } else if (column + (end - at) > limit && at == 0 &&
               (limit == kMaxEncodedLine || !isBeyondLine(value.substr(0, end)))) {
      result.append(lineBreak).append(" ");
      column = 1;
    }
    result += value.substr(at, end - at);
    column += end - at;
    while (end < value.size() && (value[end] == '\r' || value[end] == '\n')) {
      result += value[end++];
      column = 0;
    }
    at = end;
  }
  return result;
}

}  // namespace host::message
