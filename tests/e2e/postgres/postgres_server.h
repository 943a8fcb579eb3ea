// A PostgreSQL server of a test's own.
#pragma once

#include <string>
#include <vector>

#include "tests/unit/host/core/temp_folder.h"

namespace testing_host {

/// Runs in a temporary folder, as an unprivileged user, and listens on a socket in it. Ends with
/// this object.
class PostgresServer {
 public:
  /// \throw std::runtime_error when it does not come up; a missing server is a fault, too
  PostgresServer();
  ~PostgresServer();
  PostgresServer(const PostgresServer&) = delete;
  PostgresServer& operator=(const PostgresServer&) = delete;

  /// The server of this process, started at first use.
  static PostgresServer& shared();

  /// Makes an empty database. \return its location
  std::string makeDatabase();
  /// The location of a database of that name.
  std::string locationOf(const std::string& database) const;

  void start();
  /// Ends every connection, as a power cut of the server does.
  void stopAtOnce();
  /// The same without a word to the server, whose first process is killed; then it comes back.
  void killAndStart();

 private:
  void run(const std::vector<std::string>& command) const;

  TempFolder folder_;
  std::string data_ = folder_ / "data";
  bool running_ = false;
  int databases_ = 0;
};

}  // namespace testing_host
