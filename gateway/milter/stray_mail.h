// Our own sealed mail at a listener where seals do not count.
#pragma once

#include <cstddef>
#include <mutex>
#include <set>
#include <string>

#include "host/core/log.h"

namespace gateway::milter {

/// Tells the log of such mail, once for each listener. Safe from any thread.
class StrayMail {
 public:
  /// So many listeners are told of at most.
  static constexpr std::size_t kMostListeners = 100;

  /// \param listener  the name of the one that the mail came in at; may be empty
  /// \param ours      that of the one where seals count; empty when none is set
  void note(const std::string& listener, const std::string& ours, host::core::ProcessLog& log);

 private:
  std::mutex mutex_;
  std::set<std::string> told_;
};

}  // namespace gateway::milter
