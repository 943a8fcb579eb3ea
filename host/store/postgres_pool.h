// Connections to a PostgreSQL database.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/store/connection.h"
#include "host/store/patience.h"
#include "host/store/postgres_store.h"

namespace host::store {

class PostgresPool final : public ConnectionPool {
 public:
  /// \param location  "postgresql://user@host:port/database?..." \throw StoreFailure when it is no
  ///   such text
  PostgresPool(const std::string& location, const PostgresOptions& options);

  std::unique_ptr<Connection> take() override;
  std::unique_ptr<Connection> look() override;
  void giveBack(std::unique_ptr<Connection> connection) override;
  void dropIdle() override;
  bool hasOneWriter() const override { return false; }
  const std::string& location() const override { return shown_; }

 private:
  std::string location_;
  std::string shown_;
  int lockTimeoutMs_;
  std::shared_ptr<Patience> patience_;
  Upkeep upkeep_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<Connection>> idle_;
};

}  // namespace host::store
