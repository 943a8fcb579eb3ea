// The difference between two messages as a person reads them.
#pragma once

#include <string>
#include <vector>

#include "gateway/cli/line_diff.h"

namespace host::message {
class Message;
}

namespace gateway::cli {

/// What a difference is about.
struct DiffSection {
  std::string title;  ///< "header", "part 1, text/plain", "attachments"
  std::vector<DiffLine> lines;
};

/// Compares header fields decoded, texts in UTF-8, and the list of attachments with their types and
/// sizes; of content that was wrapped, what is around it. What is the same has no section. All
/// lines are printable. Of a text the first megabyte is looked at.
std::vector<DiffSection> messageDiff(const host::message::Message& before,
                                     const host::message::Message& after);

}  // namespace gateway::cli
