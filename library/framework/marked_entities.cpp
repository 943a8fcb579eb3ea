#include "library/framework/marked_entities.h"

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

namespace library {

namespace {

constexpr std::size_t kMaxItem = 63;

std::optional<MarkedEntity> readItem(std::string_view item) {
  if (item.size() > kMaxItem) {
    return std::nullopt;
  }
  char text[kMaxItem + 1] = {};
  item.copy(text, kMaxItem);
  char* idEnd = nullptr;
  const unsigned long id = std::strtoul(text, &idEnd, 10);
  char* handleEnd = nullptr;
  const unsigned long long handle = std::strtoull(idEnd, &handleEnd, 16);
  if (idEnd == text || handleEnd == idEnd || handle == 0) {
    return std::nullopt;
  }
  // NOLINTNEXTLINE(performance-no-int-to-ptr): that is what a handle is
  auto* entity = reinterpret_cast<OvMsgEntity*>(static_cast<std::uintptr_t>(handle));
  return MarkedEntity{static_cast<unsigned int>(id), entity};
}

}  // namespace

MarkedEntities readMarkedEntities(const std::string& list) {
  const std::string_view text = list.c_str();
  MarkedEntities marked;
  while (marked.end < text.size()) {
    const std::string_view rest = text.substr(marked.end);
    const std::string_view item = rest.substr(0, rest.find(';'));
    const auto entity = readItem(item);
    if (!entity) {
      return marked;
    }
    marked.entities.push_back(*entity);
    marked.end += item.size() < rest.size() ? item.size() + 1 : item.size();
  }
  marked.complete = true;
  return marked;
}

unsigned int handleForLog(const OvMsgEntity* entity) {
  return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(entity));
}

}  // namespace library
