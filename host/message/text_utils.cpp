#include "library/platform/text_utils.h"

#include "host/message/ascii.h"

void tokenize(const std::string& text, std::vector<std::string>& parts, char separator) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find(separator, at), text.size());
    if (end > at) parts.push_back(text.substr(at, end - at));
    at = end + 1;
  }
}

int platform_icasencmp(const char* left, const char* right, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) {
    const auto a = static_cast<unsigned char>(host::message::lowered(left[i]));
    const auto b = static_cast<unsigned char>(host::message::lowered(right[i]));
    if (a != b) return a < b ? -1 : 1;
    if (a == '\0') return 0;
  }
  return 0;
}

void ReformatSpecialToken(Kavi::TokenMap<Kavi::ScanToken>& tokens, Kavi::ScanToken token) {
  std::string* value = tokens.find(token);
  if (value == nullptr) return;
  std::vector<std::string> lines;
  tokenize(*value, lines, '\n');
  std::string joined;
  for (const std::string& line : lines) {
    const std::string_view item = host::message::trimmed(line);
    if (item.empty()) continue;
    if (!joined.empty()) joined += ", ";
    joined += item;
  }
  *value = std::move(joined);
}
