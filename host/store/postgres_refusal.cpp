#include "host/store/postgres_refusal.h"

#include <libpq-fe.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string_view>

namespace host::store {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLongest{3000};
constexpr std::size_t kCodeSize = 5;

struct Finish {
  void operator()(PGconn* connection) const { PQfinish(connection); }
};

// Waits until the connection can go on. \return false when it cannot by then
bool waitFor(PGconn* connection, PostgresPollingStatusType wanted, Clock::time_point end) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
  pollfd waiting{PQsocket(connection), POLLIN, 0};
  if (wanted == PGRES_POLLING_WRITING) waiting.events = POLLOUT;
  if (waiting.fd < 0 || left.count() <= 0) return false;
  return ::poll(&waiting, 1, static_cast<int>(left.count())) > 0;
}

// "...: FATAL:  28P01\n": what stands behind the last blank.
std::string codeIn(std::string_view message) {
  while (!message.empty() && message.back() == '\n') message.remove_suffix(1);
  message.remove_prefix(message.rfind(' ') + 1);
  const bool isCode =
      message.size() == kCodeSize && std::all_of(message.begin(), message.end(), [](char sign) {
        return (sign >= '0' && sign <= '9') || (sign >= 'A' && sign <= 'Z');
      });
  return std::string(isCode ? message : std::string_view());
}

}  // namespace

std::string refusalOf(const std::string& location) {
  const std::unique_ptr<PGconn, Finish> connection(PQconnectStart(location.c_str()));
  if (connection == nullptr || PQstatus(connection.get()) == CONNECTION_BAD) return {};
  PQsetErrorVerbosity(connection.get(), PQERRORS_SQLSTATE);
  const Clock::time_point end = Clock::now() + kLongest;
  PostgresPollingStatusType status = PGRES_POLLING_WRITING;
  while (status != PGRES_POLLING_OK && status != PGRES_POLLING_FAILED) {
    if (!waitFor(connection.get(), status, end)) return {};
    status = PQconnectPoll(connection.get());
  }
  return status == PGRES_POLLING_FAILED ? codeIn(PQerrorMessage(connection.get())) : std::string();
}

}  // namespace host::store
