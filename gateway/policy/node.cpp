#include "gateway/policy/node.h"

#include <utility>

#include "host/core/text_escape.h"

namespace gateway::policy {
namespace {

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = host::core::utf8Length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

}  // namespace

Node& Document::addValue(std::string value) {
  Node& node = add(isUtf8(value) ? Node::Kind::Scalar : Node::Kind::Binary, 0);
  node.text = std::move(value);
  return node;
}

void Document::addMember(Node& map, std::string_view key, std::string value) {
  map.members.push_back({std::string(key), 0, &addValue(std::move(value))});
}

}  // namespace gateway::policy
