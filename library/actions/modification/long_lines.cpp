#include "library/actions/modification/long_lines.h"

#include <unicode/utf16.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "library/actions/modification/charset_converter.h"
#include "library/tokens/action_utils.h"

namespace library {

namespace {

constexpr std::u16string_view kBreak = u"\r\n";

// What a piece that ends here may give beyond the bytes written so far, in units of the charset's
// widest: the break, the return to the initial state, and what the converter holds back.
constexpr std::size_t kEnding = 4;
constexpr std::size_t kMostHeldBack = 19;

std::string_view untilNul(std::string_view bytes) { return bytes.substr(0, bytes.find('\0')); }

/// One text that is divided. The steps measure a piece by encoding it anew with every unit that is
/// tried; this finds the same places by measuring only near the end of a piece.
class LongLines {
 public:
  LongLines(CharsetConverter target, int limit)
      : target_(std::move(target)),
        maxBytes_(target_.maxBytesPerUnit()),
        limit_(static_cast<std::size_t>(limit)) {}

  /// \return whether `output` holds a text that differs from the one given.
  bool divide(std::u16string_view text);
  const std::string& output() const { return output_; }
  CharsetConverter& target() { return target_; }
  std::span<char> buffer() { return buffer_; }

 private:
  bool measureBreak();
  bool reserveBuffer(std::size_t units);
  bool divideLine(std::string_view line);
  bool appendPiece(std::size_t start, std::size_t end);
  bool appendLastPiece(std::size_t start);

  /// The first unit from \p next on with which the piece from \p start no longer fits, or the
  /// line's length. \return none when a conversion fails.
  std::optional<std::size_t> endOfPiece(std::size_t start, std::size_t next);
  std::optional<std::size_t> endByContinuing(std::size_t start, std::size_t next);
  bool advance(std::size_t& unit, std::size_t end, std::size_t enough, std::size_t& bytes);
  bool beginAgain(std::size_t start, std::size_t end);
  std::optional<std::size_t> endByEncodingAnew(std::size_t start, std::size_t next);
  std::optional<std::size_t> bytesWithBreak(std::size_t start, std::size_t end);

  std::size_t maxPiece() const { return break_.size() + limit_; }
  /// How many more bytes surely fit behind \p bytes, and an ending of \p units behind those.
  std::size_t safeBytesAfter(std::size_t bytes, std::size_t units) const {
    const std::size_t taken = bytes + units * maxBytes_;
    const std::size_t room = std::min(maxPiece(), buffer_.size());
    return taken < room ? room - taken : 0;
  }

  CharsetConverter target_;
  const std::size_t maxBytes_;
  const std::size_t limit_;
  std::string break_;         // in the charset
  std::vector<char> buffer_;  // its size is the room of every conversion
  std::u16string line_;
  std::u16string piece_;
  std::string output_;
  bool divided_ = false;
  // When the last character of the whole text that has no code is one that is ignored for that (a
  // soft hyphen), some converters substitute the next thing that they cannot encode as they would
  // have that character, if with another number of bytes. In the steps this is the first half of
  // a surrogate pair, as it is measured before the second half is there.
  bool lateSubstitution_ = true;
  std::size_t firstPair_ = 0;  // in the line, or its length
};

bool LongLines::measureBreak() {
  std::string buffer(maxBytes_ * kBreak.size(), '\0');
  const auto size = target_.encode(kBreak, buffer);
  if (!size || *size == 0) {
    return false;
  }
  break_ = buffer.substr(0, *size);
  return true;
}

bool LongLines::reserveBuffer(std::size_t units) {
  const std::size_t bytes = units * maxBytes_;
  const std::size_t room = bytes / limit_ * break_.size() + bytes;
  if (room >= INT32_MAX) {
    return false;
  }
  buffer_.resize(room);
  return true;
}

bool LongLines::divide(std::u16string_view text) {
  if (!measureBreak() || !reserveBuffer(text.size())) {
    return false;
  }
  const auto size = target_.encode(text, buffer_);
  if (!size) {
    return false;
  }
  const std::string whole(untilNul({buffer_.data(), *size}));
  for (std::size_t start = 0; start < whole.size();) {
    const std::size_t found = whole.find(break_, start);
    const std::size_t end = found == std::string::npos ? whole.size() : found + break_.size();
    const std::string_view line = std::string_view(whole).substr(start, end - start);
    if (line.size() <= maxPiece()) {
      output_ += line;
    } else if (!divideLine(line)) {
      return false;
    }
    start = end;
  }
  return divided_;
}

bool LongLines::divideLine(std::string_view line) {
  ActionUtils::L1("Long line detected '%d'", static_cast<int>(line.size()));
  if (!target_.decode(line, line_)) {
    return false;
  }
  firstPair_ = static_cast<std::size_t>(
      std::find_if(line_.begin(), line_.end(), [](char16_t unit) { return U16_IS_LEAD(unit); }) -
      line_.begin());
  std::size_t start = 0;
  std::size_t next = 0;
  for (;;) {
    const auto end = endOfPiece(start, next);
    if (!end) {
      return false;
    }
    if (*end == line_.size()) {
      return appendLastPiece(start);
    }
    if (!appendPiece(start, *end)) {
      return false;
    }
    start = *end;
    next = start + 1;  // what opens a piece stands in it, however wide it is
  }
}

bool LongLines::appendPiece(std::size_t start, std::size_t end) {
  const auto size = bytesWithBreak(start, end);
  if (!size) {
    return false;
  }
  const std::string_view bytes = untilNul({buffer_.data(), *size});
  output_ += bytes;
  ActionUtils::L1("Long line divided '%d'", static_cast<int>(bytes.size()));
  divided_ = true;
  return true;
}

bool LongLines::appendLastPiece(std::size_t start) {
  if (start == line_.size()) {
    return true;
  }
  const auto size = target_.encode(std::u16string_view(line_).substr(start), buffer_);
  if (!size) {
    return false;
  }
  output_ += untilNul({buffer_.data(), *size});
  return true;
}

std::optional<std::size_t> LongLines::bytesWithBreak(std::size_t start, std::size_t end) {
  piece_.assign(line_, start, end - start);
  piece_ += kBreak;
  return target_.encode(piece_, buffer_);
}

std::optional<std::size_t> LongLines::endOfPiece(std::size_t start, std::size_t next) {
  return target_.continues() ? endByContinuing(start, next) : endByEncodingAnew(start, next);
}

std::optional<std::size_t> LongLines::endByContinuing(std::size_t start, std::size_t next) {
  target_.restart();
  std::size_t bytes = 0;
  std::size_t unit = start;
  if (!advance(unit, next, SIZE_MAX, bytes) ||
      !advance(unit, lateSubstitution_ ? firstPair_ : line_.size(),
               safeBytesAfter(bytes, kMostHeldBack + kEnding), bytes)) {
    return std::nullopt;
  }
  while (unit < line_.size()) {
    const std::size_t tried = unit;
    if (!advance(unit, tried + 1, SIZE_MAX, bytes)) {
      return std::nullopt;
    }
    const bool late = lateSubstitution_ && tried == firstPair_;
    if (!late && safeBytesAfter(bytes, target_.heldBack() + kEnding) > 0) {
      continue;
    }
    auto probe = target_.copy();
    const auto ending = probe ? probe->finish(kBreak) : std::nullopt;
    if (!ending || bytes + *ending > buffer_.size()) {
      return std::nullopt;
    }
    const bool fits = bytes + *ending <= maxPiece();
    if (late) {
      lateSubstitution_ = false;
      target_ = std::move(*probe);
    }
    if (!fits) {
      return tried;
    }
    if (late && !beginAgain(start, unit)) {
      return std::nullopt;
    }
  }
  return line_.size();
}

bool LongLines::beginAgain(std::size_t start, std::size_t end) {
  target_.restart();
  std::size_t bytes = 0;
  return advance(start, end, SIZE_MAX, bytes);
}

// Leads the converter on to `end`, or until the units give `enough` bytes.
bool LongLines::advance(std::size_t& unit, std::size_t end, std::size_t enough,
                        std::size_t& bytes) {
  std::u16string_view units = std::u16string_view(line_).substr(unit, end - unit);
  const auto written = target_.advance(units, enough);
  bytes += written.value_or(0);
  unit = end - units.size();
  return written.has_value();
}

std::optional<std::size_t> LongLines::endByEncodingAnew(std::size_t start, std::size_t next) {
  for (std::size_t unit = next; unit < line_.size(); ++unit) {
    const auto bytes = bytesWithBreak(start, unit + 1);
    if (!bytes) {
      return std::nullopt;
    }
    if (*bytes > maxPiece()) {
      return unit;
    }
    unit += safeBytesAfter(*bytes, kMostHeldBack + kEnding) / maxBytes_;
  }
  return line_.size();
}

}  // namespace

bool divideLongLines(std::string& text, const char* charset, int limit) {
  if (text.empty() || text.size() >= INT32_MAX || charset == nullptr || limit <= 0) {
    return false;
  }
  auto utf8 = CharsetConverter::open("utf-8");
  auto target = CharsetConverter::open(charset);
  std::u16string units;
  if (!utf8 || !target || !utf8->decode(text, units)) {
    return false;
  }
  LongLines lines(std::move(*target), limit);
  if (!lines.divide(units) || !lines.target().decode(lines.output(), units)) {
    return false;
  }
  const auto size = utf8->encode(units, lines.buffer());
  if (!size) {
    return false;
  }
  text = untilNul({lines.buffer().data(), *size});
  return true;
}

}  // namespace library
