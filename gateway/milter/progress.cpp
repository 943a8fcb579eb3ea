#include "gateway/milter/progress.h"

#include <utility>

namespace gateway::milter {

Progress::Progress(std::chrono::milliseconds interval)
    : interval_(interval), thread_([this](const std::stop_token& stop) { work(stop); }) {}

Progress::~Progress() {
  thread_.request_stop();
  thread_.join();
}

Progress::Watch::Watch(Progress& progress, std::function<void()> sign) : progress_(progress) {
  const std::lock_guard lock(progress_.mutex_);
  progress_.watched_.emplace(this, Entry{std::move(sign), Clock::now() + progress_.interval_});
}

Progress::Watch::~Watch() {
  // The thread gives its signs under the lock, so none is under way behind this.
  const std::lock_guard lock(progress_.mutex_);
  progress_.watched_.erase(this);
}

void Progress::work(const std::stop_token& stop) {
  // A quarter of an interval late at most; nobody has to wake this thread for a new message.
  const auto pause = interval_ / 4;
  std::unique_lock lock(mutex_);
  while (!stop.stop_requested()) {
    changed_.wait_for(lock, stop, pause, [] { return false; });
    const Clock::time_point now = Clock::now();
    for (auto& [watch, entry] : watched_) {
      if (entry.next > now) continue;
      entry.sign();
      entry.next = now + interval_;
    }
  }
}

}  // namespace gateway::milter
