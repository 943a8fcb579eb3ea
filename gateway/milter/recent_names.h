// The last names of a kind.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace gateway::milter {

/// Keeps so many names, and when each was kept. One thread at a time.
class RecentNames {
 public:
  using Clock = std::chrono::steady_clock;

  explicit RecentNames(std::size_t most) : most_(most) {}

  /// \p name is the last one. \return the first one, when it had to go.
  std::optional<std::string> keep(const std::string& name, Clock::time_point now = Clock::now()) {
    take(name);
    kept_.emplace(name, Kept{next_, now});
    order_.emplace(next_++, name);
    if (kept_.size() <= most_) return std::nullopt;
    std::string first = order_.begin()->second;
    take(first);
    return first;
  }

  /// Forgets \p name. \return whether it was kept.
  bool take(const std::string& name) {
    const auto found = kept_.find(name);
    if (found == kept_.end()) return false;
    order_.erase(found->second.number);
    kept_.erase(found);
    return true;
  }

  /// Whether \p name was kept no longer ago than \p age.
  bool holds(const std::string& name, std::chrono::seconds age,
             Clock::time_point now = Clock::now()) const {
    const auto found = kept_.find(name);
    return found != kept_.end() && now - found->second.since <= age;
  }

 private:
  struct Kept {
    std::uint64_t number;
    Clock::time_point since;
  };

  std::size_t most_;
  std::map<std::string, Kept> kept_;
  std::map<std::uint64_t, std::string> order_;
  std::uint64_t next_ = 0;
};

}  // namespace gateway::milter
