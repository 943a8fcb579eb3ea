#include "host/delivery/escaped_name.h"

#include <limits>

#include "host/core/text_escape.h"

namespace host::delivery {

namespace {

constexpr char kEscape = '%';
constexpr char kEmpty[] = "%";
constexpr std::string_view kContinued = "%+";
constexpr char kDigits[] = "0123456789ABCDEF";

bool isSpecial(char c) { return c == '/' || c == kEscape || c == '~'; }

bool isControl(std::string_view character) {
  const auto lead = static_cast<unsigned char>(character[0]);
  if (lead < 0x20 || lead == 0x7F) return true;
  return lead == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

void appendEscaped(std::string& out, std::string_view bytes) {
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    out += kEscape;
    out += kDigits[byte >> 4];
    out += kDigits[byte & 15];
  }
}

// The next character of `rest` as it is to be written.
std::string nextCharacter(std::string_view& rest, bool first) {
  const std::size_t length = core::utf8Length(rest);
  const std::string_view character = rest.substr(0, length == 0 ? 1 : length);
  rest.remove_prefix(character.size());
  const char c = character[0];
  const bool misleading = first && (c == '.' || c == '-');
  if (length != 0 && !misleading && !isSpecial(c) && !isControl(character)) {
    return std::string(character);
  }
  std::string escaped;
  appendEscaped(escaped, character);
  return escaped;
}

std::vector<std::string> piecesOf(std::string_view name, std::size_t maxBytes) {
  if (name.empty()) return {kEmpty};
  std::vector<std::string> pieces(1);
  while (!name.empty()) {
    std::string_view rest = name;
    const std::string text = nextCharacter(rest, pieces.back().empty());
    if (!pieces.back().empty() && text.size() > maxBytes - pieces.back().size()) {
      pieces.back() += kContinued;
      pieces.emplace_back();
      continue;
    }
    pieces.back() += text;
    name = rest;
  }
  return pieces;
}

int digitOf(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

}  // namespace

std::vector<std::string> escapedPieces(std::string_view name) {
  return piecesOf(name, kMaxPieceBytes - kContinued.size());
}

std::string escapedName(std::string_view name) {
  return piecesOf(name, std::numeric_limits<std::size_t>::max()).front();
}

bool appendUnescaped(std::string_view piece, std::string& name, bool& more) {
  if (piece.empty()) return false;
  if (piece == kEmpty) {
    more = false;
    return true;
  }
  const bool continued = piece.size() > kContinued.size() && piece.ends_with(kContinued);
  if (continued) piece.remove_suffix(kContinued.size());
  std::string text;
  for (std::size_t at = 0; at < piece.size(); ++at) {
    if (piece[at] != kEscape) {
      text += piece[at];
      continue;
    }
    if (piece.size() - at < 3) return false;
    const int high = digitOf(piece[at + 1]);
    const int low = digitOf(piece[at + 2]);
    if (high < 0 || low < 0) return false;
    text += static_cast<char>(high * 16 + low);
    at += 2;
  }
  name += text;
  more = continued;
  return true;
}

}  // namespace host::delivery
