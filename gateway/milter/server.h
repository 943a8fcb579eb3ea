// The milter protocol, by libmilter.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "gateway/milter/message_scan.h"
#include "gateway/milter/progress.h"

namespace gateway::milter {

/// Serves mail systems. libmilter is one to a process, and so is this. Each connection has its own
/// state, one message at a time; libmilter's threads run the messages.
class Server {
 public:
  /// \param gateway     must outlive the server
  /// \param wakeSender  called when something may have been filed in the spool; from any thread
  Server(const Gateway& gateway, std::function<void()> wakeSender);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Opens the socket: mail systems can connect then, and wait.
  /// \return an error text; empty for success.
  std::string open();
  /// Serves until the process gets SIGTERM. SIGTERM, SIGHUP and SIGINT must be blocked in all
  /// threads. \return an error text; empty for a proper end.
  std::string serve();
  /// Lets the messages that have come whole come to their end, and somebody else's work, behind
  /// `serve`. What takes longer than the deadline of a message is broken off.
  /// \param isOtherAtWork  whether the other one is
  /// \param breakOff       ends what is under way with mail servers
  /// \return false when something is at work all the same: nothing that it uses may be destroyed.
  bool finish(const std::function<bool()>& isOtherAtWork, const std::function<void()>& breakOff);
  /// How long `finish` may take besides the deadline of a message.
  static constexpr std::chrono::seconds kFinishMargin{10};

  // For the callbacks of libmilter.
  const Gateway& gateway() const { return gateway_; }
  Progress& progress() { return progress_; }
  void wakeSender() const { wakeSender_(); }
  /// Counts something while it lives.
  class Count {
   public:
    explicit Count(std::atomic<std::size_t>& count) : count_(count) { ++count_; }
    ~Count() { --count_; }
    Count(const Count&) = delete;
    Count& operator=(const Count&) = delete;

   private:
    std::atomic<std::size_t>& count_;
  };
  std::atomic<std::size_t>& connections() { return connections_; }
  std::atomic<std::size_t>& messagesAtWork() { return messagesAtWork_; }

  /// The server of this process; null when there is none.
  static Server* running();

 private:
  const Gateway& gateway_;
  std::function<void()> wakeSender_;
  Progress progress_;
  std::atomic<std::size_t> connections_ = 0;
  std::atomic<std::size_t> messagesAtWork_ = 0;
};

}  // namespace gateway::milter
