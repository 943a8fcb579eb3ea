#include "host/core/action_list.h"

#include <charconv>

#include "host/core/action_names.h"

namespace host::core {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";
constexpr int kHexadecimal = 16;

bool isPlain(char c) { return c >= 0x20 && c <= 0x7E && c != '%' && c != ';' && c != ':'; }

std::optional<std::string> unescaped(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    if (text[0] != '%') {
      if (!isPlain(text[0])) return std::nullopt;
      out += text[0];
      text.remove_prefix(1);
      continue;
    }
    if (text.size() < 3) return std::nullopt;
    unsigned int byte = 0;
    const auto [end, fault] = std::from_chars(text.data() + 1, text.data() + 3, byte, kHexadecimal);
    if (fault != std::errc() || end != text.data() + 3) return std::nullopt;
    out += static_cast<char>(byte);
    text.remove_prefix(3);
  }
  return out;
}

std::optional<TakenAction> parseItem(std::string_view item) {
  int code = 0;
  const char* last = item.data() + item.size();
  const auto [end, fault] = std::from_chars(item.data(), last, code);
  if (fault != std::errc() || !isAssignedActionType(code)) return std::nullopt;
  item.remove_prefix(static_cast<std::size_t>(end - item.data()));
  TakenAction action{static_cast<KaviAction::ActionType>(code), {}};
  if (item.empty()) return action;
  if (item[0] != ':') return std::nullopt;
  std::optional<std::string> detail = unescaped(item.substr(1));
  if (!detail) return std::nullopt;
  action.detail.swap(*detail);
  return action;
}

}  // namespace

void appendTakenAction(std::string& raw, const TakenAction& action) {
  std::string item = std::to_string(static_cast<int>(action.type));
  if (!action.detail.empty()) item += ':';
  for (const char c : action.detail) {
    if (isPlain(c)) {
      item += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    item += '%';
    item += kHexDigits[byte >> 4];
    item += kHexDigits[byte & 15];
  }
  if (!raw.empty()) item.insert(item.begin(), ';');
  raw += item;
}

std::optional<std::vector<TakenAction>> parseTakenActions(std::string_view raw) {
  std::vector<TakenAction> actions;
  if (raw.empty()) return actions;
  while (true) {
    const std::size_t end = raw.find(';');
    std::optional<TakenAction> action = parseItem(raw.substr(0, end));
    if (!action) return std::nullopt;
    actions.push_back(std::move(*action));
    if (end == std::string_view::npos) return actions;
    raw.remove_prefix(end + 1);
  }
}

}  // namespace host::core
