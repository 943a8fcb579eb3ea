#include "gateway/policy/node.h"

#include <utility>

#include "host/core/text_escape.h"

namespace gateway::policy {
Node& Document::addValue(std::string value) {
  Node& node = add(host::core::isUtf8(value) ? Node::Kind::Scalar : Node::Kind::Binary, 0);
  node.text = std::move(value);
  return node;
}

void Document::addMember(Node& map, std::string_view key, std::string value) {
  map.members.push_back({std::string(key), 0, &addValue(std::move(value))});
}

}  // namespace gateway::policy
