// Writes a tree as YAML.
#pragma once

#include <string>

#include "gateway/policy/node.h"

namespace gateway::policy {

/// \p node, a map or a list, as YAML that readYaml reads back as the same tree: one key or item a
/// line, texts of several lines as blocks where they are left as they are, everything that could
/// be read another way in quotes.
std::string writeYaml(const Node& node);

}  // namespace gateway::policy
