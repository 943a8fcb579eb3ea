#include "host/message/address.h"

#include <algorithm>

#include "host/message/ascii.h"
#include "host/message/encoded_text.h"

namespace host::message {

namespace {

// The last "<" that stands in no quotes, as the local part itself may hold brackets in quotes
// (RFC 5321 section 4.1.2). Where quotes are not closed, the last of all.
std::size_t openingBracket(std::string_view text) {
  bool quoted = false;
  std::size_t open = std::string_view::npos;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (quoted && text[i] == '\\') {
      ++i;
    } else if (text[i] == '"') {
      quoted = !quoted;
    } else if (text[i] == '<' && !quoted) {
      open = i;
    }
  }
  return quoted ? text.rfind('<') : open;
}

}  // namespace

mime::Address splitMailbox(std::string_view text) {
  text = trimmed(text);
  if (!text.ends_with('>')) return {{}, std::string(text)};
  const std::size_t open = openingBracket(text);
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' && c != '\t'; };
  if (open == std::string_view::npos || std::any_of(text.begin(), text.end(), isControl)) {
    return {{}, std::string(text)};
  }
  std::string_view name = trimmed(text.substr(0, open));
  const std::string_view address = trimmed(text.substr(open + 1, text.size() - open - 2));
  std::string plain;
  const bool quoted = name.size() >= 2 && name.front() == '"' && name.back() == '"';
  if (quoted) name = name.substr(1, name.size() - 2);
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (quoted && name[i] == '\\' && i + 1 < name.size()) ++i;
    plain += name[i];
  }
  return {decodedText(plain), std::string(address)};
}

std::vector<std::string_view> dividedAddresses(std::string_view text) {
  std::vector<std::string_view> parts;
  bool quoted = false;
  std::size_t begin = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (quoted && text[i] == '\\') {
      ++i;
    } else if (text[i] == '"') {
      quoted = !quoted;
    } else if (text[i] == ';' && !quoted) {
      parts.push_back(text.substr(begin, i - begin));
      begin = i + 1;
    }
  }
  parts.push_back(text.substr(begin));
  return parts;
}

bool isMailAddress(std::string_view address) {
  if (address.empty() || address.front() == '@' || address.back() == '@') return false;
  bool quoted = false;
  for (std::size_t i = 0; i < address.size(); ++i) {
    const char c = address[i];
    if (static_cast<unsigned char>(c) < ' ' || c == 127) return false;
    if (quoted && c == '\\') {
      ++i;
    } else if (c == '"') {
      quoted = !quoted;
    } else if (!quoted && (c == ' ' || c == ',' || c == ';' || c == '<' || c == '>')) {
      return false;
    }
  }
  return !quoted;
}

}  // namespace host::message
