// What a rule says besides its condition and its actions.
#pragma once

#include <string>

namespace host::store {

/// What becomes of a message when an action of the rule fails. The numbers are stored.
enum class OnFailure {
  TempFail = 0,  ///< it is refused for now
  Accept = 1,    ///< it goes on as it stood before the rule
};

/// The answer that a rule gives once its actions have run.
struct RuleVerdict {
  /// The numbers are stored.
  enum class Kind {
    None = 0,      ///< none: later rules run
    Reject = 1,    ///< the message is refused for good
    TempFail = 2,  ///< the message is refused for now
  };

  Kind kind = Kind::None;
  std::string text{};  ///< what the sender is told; empty with None

  bool operator==(const RuleVerdict&) const = default;
};

}  // namespace host::store
