// The condition of a rule (`when`) as plain data, with its two texts: what an administrator writes
// and the canonical one that is stored.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/policy/node.h"

namespace gateway::policy {

struct Condition {
  enum class Kind {
    Always,
    Header,          ///< `name`, and `patterns` (RE2) on its value; without patterns: is there
    Subject,         ///< `patterns` (RE2) on any decoded subject
    Sender,          ///< `patterns` (RE2) on the envelope sender
    Recipient,       ///< `patterns` (RE2) on any envelope recipient
    Size,            ///< `over` and `under`, in bytes
    AttachmentName,  ///< `patterns` (globs) on any declared file name
    AttachmentType,  ///< `patterns` (globs) on any declared content type
    All,             ///< every one of `children`
    Any,             ///< at least one of `children`
    Not,             ///< the one of `children` does not hold
  };

  Kind kind = Kind::Always;
  std::string name;
  std::vector<std::string> patterns;
  std::optional<std::uint64_t> over;
  std::optional<std::uint64_t> under;
  std::vector<Condition> children;
  int line = 0;  ///< for messages; 0 in a stored condition
};

/// Receives what is wrong with a value, and its line.
using FaultSink = std::function<void(int line, std::string message)>;

/// Reads the value of `when`. Patterns are compiled once to check them.
/// \return nothing when there was a fault; every fault was handed to \p fault.
std::optional<Condition> parseCondition(const Node& value, const FaultSink& fault);

/// The stored form: one line of JSON with fixed key order and normalised sizes; equal conditions
/// have equal texts.
std::string canonicalText(const Condition& condition);

/// Reads the stored form back.
std::optional<Condition> parseCanonicalText(std::string_view text, const FaultSink& fault);

/// The word of a policy for a kind of condition.
std::string_view wordOf(Condition::Kind kind);

/// The deepest nesting of `all`, `any` and `not`.
inline constexpr int kMaxConditionDepth = 20;

}  // namespace gateway::policy
