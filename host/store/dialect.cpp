#include "host/store/dialect.h"

#include <utility>

namespace host::store {

std::string withTypes(std::string_view text, std::string_view bytes, std::string_view row) {
  const std::pair<std::string_view, std::string_view> types[] = {{"{bytes}", bytes},
                                                                 {"{row}", row}};
  std::string out(text);
  for (const auto& [name, type] : types) {
    for (std::size_t at = out.find(name); at != std::string::npos; at = out.find(name, at)) {
      out.replace(at, name.size(), type);
      at += type.size();
    }
  }
  return out;
}

}  // namespace host::store
