#include "host/store/dialect.h"

#include <utility>

namespace host::store {

std::string inWordsOf(const Dialect& dialect, std::string_view text) {
  constexpr std::string_view kServer = "{server}";
  if (text.starts_with(kServer)) {
    if (!dialect.isServer) return {};
    text.remove_prefix(kServer.size());
  }
  const std::pair<std::string_view, std::string_view> words[] = {
      {"{bytes}", dialect.bytes}, {"{row}", dialect.row}, {"{digest}", dialect.digest}};
  std::string out(text);
  for (const auto& [name, word] : words) {
    for (std::size_t at = out.find(name); at != std::string::npos; at = out.find(name, at)) {
      out.replace(at, name.size(), word);
      at += word.size();
    }
  }
  return out;
}

}  // namespace host::store
