#include "host/store/patience.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "host/store/store_failure.h"

namespace host::store {

Patience::Line::Line(Patience& patience, int socket)
    : patience_(patience), socket_(::fcntl(socket, F_DUPFD_CLOEXEC, 0)) {
  if (socket_ < 0) {
    throw StoreFailure(StoreError::Unavailable, "no descriptor is left to watch its connection");
  }
  const std::lock_guard lock(patience_.mutex_);
  place_ = patience_.lines_.insert(patience_.lines_.end(), this);
  if (!patience_.thread_.joinable()) {
    patience_.thread_ =
        std::jthread([&owner = patience_](const std::stop_token& stop) { owner.watch(stop); });
  }
}

Patience::Line::~Line() {
  const std::lock_guard lock(patience_.mutex_);
  patience_.lines_.erase(place_);
  ::close(socket_);
}

Patience::Line::Waiting::Waiting(Line& line) : line_(line) {
  const std::lock_guard lock(line_.patience_.mutex_);
  line_.deadline_ = Clock::now() + line_.patience_.longest_;
}

Patience::Line::Waiting::~Waiting() {
  const std::lock_guard lock(line_.patience_.mutex_);
  line_.deadline_.reset();
}

bool Patience::Line::isGivenUp() {
  const std::lock_guard lock(patience_.mutex_);
  return isGivenUp_;
}

void Patience::watch(const std::stop_token& stop) {
  std::unique_lock lock(mutex_);
  while (!stop.stop_requested()) {
    // Nobody has to wake this thread: it looks often enough to be late by a quarter at most.
    ended_.wait_for(lock, stop, longest_ / 4, [] { return false; });
    const Clock::time_point now = Clock::now();
    for (Line* line : lines_) {
      if (line->isGivenUp_ || !line->deadline_ || *line->deadline_ > now) continue;
      ::shutdown(line->socket_, SHUT_RDWR);
      line->isGivenUp_ = true;
    }
  }
}

}  // namespace host::store
