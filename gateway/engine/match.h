// A rule that matched, and what made it match.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "gateway/policy/snapshot.h"
#include "gateway/scan/message_facts.h"

namespace gateway::engine {

/// Found before any action runs, since actions change what it was found in.
struct Match {
  const policy::Snapshot::Rule* rule = nullptr;  ///< never null
  // Of the attachments that made it match, in document order; empty when others did.
  std::vector<std::string> attachments;  ///< file names, else types
  std::vector<std::string> fileNames;    ///< of those that have one
  std::vector<std::string> types;        ///< content types
  std::vector<std::size_t> entities;     ///< numbers of the entities, the root being 1
  std::string marks;                     ///< "number handle;…", the handle in hexadecimal
  std::size_t bytes = 0;                 ///< their sizes together, decoded
};

/// \param marked  indexes of the attachments
Match describeMatch(const policy::Snapshot::Rule& rule, const scan::MessageFacts& facts,
                    const std::vector<std::size_t>& marked);

}  // namespace gateway::engine
