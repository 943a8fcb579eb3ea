#include "gateway/cli/mbox.h"

#include <algorithm>
#include <utility>

namespace gateway::cli {
namespace {

constexpr std::size_t kChunk = std::size_t{256} << 10;
/// No "From " line, and no field name behind it, is longer.
constexpr std::size_t kMaxLine = 1024;
constexpr std::string_view kFrom = "From ";

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// The first line of \p text without its line break; at most kMaxLine bytes.
std::string_view firstLine(std::string_view text) {
  text = text.substr(0, kMaxLine);
  std::string_view line = text.substr(0, text.find('\n'));
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

/// A time of day, "8:05" or "08:05:30", anywhere in \p text; npos when there is none.
std::size_t findTime(std::string_view text) {
  for (std::size_t i = 1; i + 2 < text.size(); ++i) {
    if (text[i] == ':' && isDigit(text[i - 1]) && isDigit(text[i + 1]) && isDigit(text[i + 2])) {
      return i;
    }
  }
  return std::string_view::npos;
}

/// A year of four digits that stands alone.
bool hasYear(std::string_view text) {
  for (std::size_t i = 0; i + 4 <= text.size(); ++i) {
    const bool begins = i == 0 || text[i - 1] == ' ';
    const bool ends = i + 4 == text.size() || text[i + 4] == ' ';
    if (begins && ends && std::all_of(&text[i], &text[i] + 4, isDigit)) return true;
  }
  return false;
}

bool isField(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  std::string_view name = line.substr(0, colon);
  while (!name.empty() && (name.back() == ' ' || name.back() == '\t')) name.remove_suffix(1);
  return !name.empty() &&
         std::all_of(name.begin(), name.end(), [](char c) { return c > 32 && c < 127; });
}

}  // namespace

bool isMboxLine(std::string_view line) {
  if (line.substr(0, kFrom.size()) != kFrom || line.size() > kMaxLine) return false;
  const std::size_t time = findTime(line);
  return time != std::string_view::npos && hasYear(line.substr(kFrom.size()));
}

bool MboxReader::fill() {
  if (atEnd_) return false;
  if (begin_ != 0) {
    buffer_.erase(0, begin_);
    begin_ = 0;
  }
  atEnd_ = source_.read(buffer_, kChunk) == 0;
  return !atEnd_;
}

/// Reads on until at least \p size bytes are at hand, or all there are.
void MboxReader::ensure(std::size_t size) {
  while (rest().size() < size && fill()) {
  }
}

bool MboxReader::beginsMessage(std::size_t offset) {
  ensure(offset + 2 * kMaxLine);
  std::string_view text = rest().substr(offset);
  if (!isMboxLine(firstLine(text))) return false;
  const std::size_t next = text.find('\n');
  // Some programs put quoted "From " lines between the "From " line and the header.
  const std::string_view line =
      next == kNone ? std::string_view() : firstLine(text.substr(next + 1));
  return isField(line) || line.substr(0, kFrom.size() + 1) == ">From ";
}

/// The offset in `rest` of the next message's "From " line; kNone when this is the last message.
std::size_t MboxReader::findNext() {
  constexpr std::string_view kLineFrom = "\nFrom ";
  std::size_t from = 0;
  for (;;) {
    const std::size_t found = rest().find(kLineFrom, from);
    if (found == kNone) {
      const std::size_t size = rest().size();
      from = std::max(from, size - std::min(size, kLineFrom.size() - 1));
      if (!fill()) return kNone;
      continue;
    }
    from = found + 1;
    const std::string_view before = rest().substr(0, found);
    const bool blank = before.ends_with('\n') || before.ends_with("\n\r");
    if (blank && beginsMessage(from)) return from;
  }
}

std::optional<MboxMessage> MboxReader::next() {
  ensure(1);
  if (rest().empty() && started_) return std::nullopt;
  if (!started_) {
    started_ = true;
    divides_ = beginsMessage(0);
  }
  if (!divides_) {
    while (fill()) {
    }
  }
  const std::size_t end = divides_ ? findNext() : kNone;
  MboxMessage message;
  if (end == kNone) {
    buffer_.erase(0, begin_);
    message.bytes = std::move(buffer_);
    buffer_.clear();
    begin_ = 0;
    return message;
  }
  message.bytes = rest().substr(0, end);
  begin_ += end;
  isMbox_ = true;
  const std::size_t blank = message.bytes.ends_with("\r\n") ? 2 : 1;
  message.separator = message.bytes.substr(message.bytes.size() - blank);
  message.bytes.resize(message.bytes.size() - blank);
  return message;
}

}  // namespace gateway::cli
