#include "host/message/ascii.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace host::message {

bool equalsIgnoreCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() &&
         std::equal(left.begin(), left.end(), right.begin(),
                    [](char a, char b) { return lowered(a) == lowered(b); });
}

bool startsWithIgnoreCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && equalsIgnoreCase(text.substr(0, prefix.size()), prefix);
}

std::string lowered(std::string_view text) {
  std::string result(text);
  for (char& c : result) c = lowered(c);
  return result;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

// Eight bytes at once: every text that is edited goes through here.
bool isAscii(std::string_view text) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080u;
  std::uint64_t seen = 0;
  std::size_t at = 0;
  for (; at + sizeof seen <= text.size(); at += sizeof seen) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + at, sizeof word);
    seen |= word;
  }
  for (; at < text.size(); ++at) seen |= static_cast<unsigned char>(text[at]);
  return (seen & kHighBits) == 0;
}

bool isFieldName(std::string_view name) {
  return !name.empty() &&
         std::all_of(name.begin(), name.end(), [](char c) { return isFieldNameChar(c); });
}

bool hasBareCr(std::string_view text) {
  for (std::size_t at = text.find('\r'); at != std::string_view::npos; at = text.find('\r', at)) {
    while (at < text.size() && text[at] == '\r') ++at;
    if (at == text.size() || text[at] != '\n') return true;
  }
  return false;
}

LineBreak lineBreakOf(std::string_view bytes, LineBreak fallback) {
  const std::size_t lf = bytes.find('\n');
  if (lf == std::string_view::npos) return fallback;
  return LineBreak{lf > 0 && bytes[lf - 1] == '\r'};
}

std::string withLineBreak(std::string_view text, std::string_view lineBreak) {
  std::string result;
  if (lineBreak == "\n") return result.assign(text);
  result.reserve(text.size() + text.size() / 40 + 2);
  for (const char c : text) {
    if (c == '\n') {
      result += lineBreak;
    } else {
      result += c;
    }
  }
  return result;
}

}  // namespace host::message
