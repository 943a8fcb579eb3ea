// Tells the mail system now and then that a message is still being worked at.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stop_token>
#include <thread>
#include <unordered_map>

namespace gateway::milter {

/// One thread for all messages. The mail system waits only so long for each answer; any sign of
/// life makes it begin to wait anew.
class Progress {
 public:
  /// \param interval  between two signs of life of a message
  explicit Progress(std::chrono::milliseconds interval);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// While it lives, the sign is given in every interval, on the thread of Progress. No sign is
  /// under way any more once it is gone, so that the caller may talk to the mail system then.
  class Watch {
   public:
    /// \param sign  must not throw
    Watch(Progress& progress, std::function<void()> sign);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

   private:
    Progress& progress_;
  };

 private:
  using Clock = std::chrono::steady_clock;
  struct Entry {
    std::function<void()> sign;
    Clock::time_point next;
  };

  void work(const std::stop_token& stop);

  const std::chrono::milliseconds interval_;
  std::mutex mutex_;
  std::condition_variable_any changed_;
  std::unordered_map<const Watch*, Entry> watched_;
  std::jthread thread_;
};

}  // namespace gateway::milter
