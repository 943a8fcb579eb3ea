// Lists of marked entities. Input: the list.
#include <cstdint>
#include <string>

#include "fuzz/check.h"
#include "library/framework/marked_entities.h"

namespace {

using fuzz::require;

bool sameEntities(const library::MarkedEntities& left, const library::MarkedEntities& right) {
  if (left.entities.size() != right.entities.size()) {
    return false;
  }
  for (std::size_t index = 0; index < left.entities.size(); ++index) {
    if (left.entities[index].id != right.entities[index].id ||
        left.entities[index].entity != right.entities[index].entity) {
      return false;
    }
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string list(reinterpret_cast<const char*>(data), size);
  const library::MarkedEntities marked = library::readMarkedEntities(list);
  require(marked.end <= list.size());
  require(marked.end == 0 || marked.end == list.size() || list[marked.end - 1] == ';' ||
          list[marked.end] == '\0');
  std::string written;
  for (const library::MarkedEntity& mark : marked.entities) {
    require(mark.entity != nullptr);
    char item[64];
    std::snprintf(item, sizeof item, "%u %zx;", mark.id,
                  reinterpret_cast<std::size_t>(mark.entity));
    written += item;
  }
  // What was read stands in front of where reading stopped, and reads back.
  const library::MarkedEntities front = library::readMarkedEntities(list.substr(0, marked.end));
  require(front.complete && sameEntities(front, marked));
  const library::MarkedEntities again = library::readMarkedEntities(written);
  require(again.complete && sameEntities(again, marked));
  return 0;
}
