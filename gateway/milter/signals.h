// The signals that the daemon takes.
#pragma once

#include <pthread.h>

#include <atomic>
#include <functional>
#include <thread>

namespace gateway::milter {

/// Blocks, in the calling thread and those that it starts, every signal that one thread is to take:
/// SIGUSR1 (see ReloadSignal), and SIGTERM, SIGHUP and SIGINT, which libmilter takes. To be called
/// before any other thread is there.
void blockSignals();

/// Calls a function for every SIGUSR1, on a thread of its own, one call after the other.
class ReloadSignal {
 public:
  /// \param reload  must not throw
  explicit ReloadSignal(std::function<void()> reload);
  ~ReloadSignal();
  ReloadSignal(const ReloadSignal&) = delete;
  ReloadSignal& operator=(const ReloadSignal&) = delete;

 private:
  std::function<void()> reload_;
  std::atomic<bool> ended_ = false;
  std::thread thread_;
};

}  // namespace gateway::milter
