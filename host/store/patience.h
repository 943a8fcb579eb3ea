// An end to waiting for a server that has stopped answering.
#pragma once

#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>
#include <optional>
#include <thread>

namespace host::store {

/// Gives up connections on which somebody has waited for too long: it shuts the socket down, so
/// that the client library sees a connection that broke. A server that is stopped, or whose disk
/// hangs, keeps its sockets open, and nothing else would ever tell. Safe from any thread; outlives
/// its lines.
class Patience {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Patience(std::chrono::milliseconds longest) : longest_(longest) {}
  Patience(const Patience&) = delete;
  Patience& operator=(const Patience&) = delete;

  /// One connection that is watched while it waits; one thread at a time.
  class Line {
   public:
    /// \throw StoreFailure when there are no more descriptors
    Line(Patience& patience, int socket);
    ~Line();
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    /// Somebody waits for an answer, for as long as this object lives.
    class Waiting {
     public:
      explicit Waiting(Line& line);
      ~Waiting();
      Waiting(const Waiting&) = delete;
      Waiting& operator=(const Waiting&) = delete;

     private:
      Line& line_;
    };

    /// Whether the connection was given up.
    bool isGivenUp();
    std::chrono::milliseconds longest() const { return patience_.longest_; }

   private:
    friend class Patience;

    Patience& patience_;
    /// Another name for the socket: the client library closes its own when it likes, and the
    /// number would then be somebody else's.
    int socket_;
    std::optional<Clock::time_point> deadline_;
    bool isGivenUp_ = false;
    std::list<Line*>::iterator place_;
  };

 private:
  void watch(const std::stop_token& stop);

  std::chrono::milliseconds longest_;
  std::mutex mutex_;
  std::condition_variable_any ended_;
  std::list<Line*> lines_;
  std::jthread thread_;  ///< begun with the first line; the last member: ends first
};

}  // namespace host::store
