// A mail system that applies milter operations as Postfix does.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "gateway/milter/change_set.h"
#include "gateway/milter/header_edits.h"
#include "host/message/ascii.h"

namespace gateway::milter {

/// Keeps a header with the system's own trace field in front, which the milter does not see. Each
/// operation meets the header as the operations before it left it.
class MailSystem {
 public:
  explicit MailSystem(const std::vector<HeaderLine>& header) {
    lines_.push_back({"Received", " from here"});
    lines_.insert(lines_.end(), header.begin(), header.end());
  }

  void apply(const std::vector<HeaderEdit>& edits) {
    for (const HeaderEdit& edit : edits) apply(edit);
  }

  /// The header as a milter would see it now.
  std::vector<HeaderLine> header() const { return {lines_.begin() + 1, lines_.end()}; }

 private:
  void apply(const HeaderEdit& edit) {
    if (edit.kind == HeaderEdit::Kind::Insert) {
      const std::size_t place = std::min(edit.index, lines_.size());
      lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(place), {edit.name, edit.value});
      return;
    }
    // An empty value is how the protocol says "delete".
    if (edit.kind == HeaderEdit::Kind::Change) {
      EXPECT_FALSE(edit.value.empty());
    }
    std::size_t seen = 0;
    for (std::size_t i = 1; i < lines_.size(); ++i) {
      if (!host::message::equalsIgnoreCase(lines_[i].name, edit.name)) continue;
      if (++seen != edit.index) continue;
      if (edit.kind == HeaderEdit::Kind::Delete) {
        lines_.erase(lines_.begin() + static_cast<std::ptrdiff_t>(i));
      } else {
        lines_[i] = {edit.name, edit.value};
      }
      return;
    }
    ADD_FAILURE() << "no field " << edit.index << " named " << edit.name;
  }

  std::vector<HeaderLine> lines_;
};

/// Recipients as Postfix keeps them: taken out without regard to case, all that are the same.
inline std::vector<std::string> applyRecipients(std::vector<std::string> recipients,
                                                const ChangeSet& changes) {
  for (const std::string& address : changes.removed) {
    EXPECT_NE(std::erase_if(recipients,
                            [&](const std::string& each) {
                              return host::message::equalsIgnoreCase(each, address);
                            }),
              0U)
        << address;
  }
  recipients.insert(recipients.end(), changes.added.begin(), changes.added.end());
  return recipients;
}

}  // namespace gateway::milter
