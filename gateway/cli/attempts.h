// Changes that are worked out from what a store holds.
#pragma once

#include <chrono>

namespace gateway::cli {

/// Attempts at a change that somebody else may be faster with: each begins anew with what the store
/// holds by then.
///
///     for (Attempts attempts; attempts.next();) ...
class Attempts {
 public:
  static constexpr std::chrono::seconds kPatience{30};

  explicit Attempts(std::chrono::nanoseconds patience = kPatience) : patience_(patience) {}

  /// Whether to try, again: once in any case, then until the patience is used up.
  bool next() {
    const auto now = std::chrono::steady_clock::now();
    if (count_++ == 0) {
      end_ = now + patience_;
      return true;
    }
    return now < end_;
  }

  bool isFirst() const { return count_ == 1; }

 private:
  std::chrono::nanoseconds patience_;
  std::chrono::steady_clock::time_point end_;
  unsigned long count_ = 0;
};

}  // namespace gateway::cli
