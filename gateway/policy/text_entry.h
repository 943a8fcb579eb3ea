// Texts that an entry of a policy gives in place, or by the name of a file.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "gateway/policy/condition.h"
#include "gateway/policy/named_objects.h"

namespace gateway::policy {

/// Where a text of an entry stands.
struct TextEntry {
  std::string_view owner;    ///< "the stamp", as in messages
  std::string_view key;      ///< of a text: "text"
  std::string_view fileKey;  ///< of a file's name: "file"
  std::string_view example;  ///< of both, as in messages
  std::size_t maxBytes;
};

/// Reads a text in UTF-8 without control bytes but tabs and line breaks; a file's byte order mark
/// is dropped. \param line  receives the line that names the text \return false with every reason
/// and remedy handed to \p fault, also when neither is there.
bool readTextEntry(const ObjectEntry& entry, const TextEntry& wanted, std::string& text, int& line,
                   const FaultSink& fault);

}  // namespace gateway::policy
