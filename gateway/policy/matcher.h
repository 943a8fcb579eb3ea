// A compiled condition.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "gateway/policy/condition.h"
#include "gateway/policy/patterns.h"

namespace gateway::scan {
class MessageFacts;
}

namespace gateway::policy {

/// Immutable, so one serves any number of threads.
class Matcher {
 public:
  explicit Matcher(const Condition& condition);

  /// \param marked  receives, in document order and each once, the indexes of the attachments that
  ///   made the condition hold; emptied when it does not hold.
  bool matches(const scan::MessageFacts& facts, std::vector<std::size_t>& marked) const;
  /// The kind of the outermost condition.
  Condition::Kind kind() const { return kind_; }

 private:
  bool holds(const scan::MessageFacts& facts, std::vector<std::size_t>& marked) const;
  bool holdsForAll(const scan::MessageFacts& facts, std::vector<std::size_t>& marked) const;
  bool holdsForAny(const scan::MessageFacts& facts, std::vector<std::size_t>& marked) const;
  bool marksAttachments(const scan::MessageFacts& facts, std::vector<std::size_t>& marked) const;

  Condition::Kind kind_;
  std::string name_;
  Patterns patterns_;
  bool anyValue_;  ///< a header condition without patterns: the field is there
  std::uint64_t over_;
  std::uint64_t under_;
  bool hasOver_;
  bool hasUnder_;
  bool marks_;  ///< it, or a child of it, looks at attachments
  std::vector<Matcher> children_;
};

/// What an attachment's declared name may stand for once it is saved: the name, and the name as a
/// file system that drops folders and trailing dots and blanks would see it.
std::vector<std::string> nameForms(const std::string& fileName);

}  // namespace gateway::policy
