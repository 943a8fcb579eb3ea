// One connection to a PostgreSQL database.
#pragma once

#include <map>
#include <memory>
#include <pqxx/pqxx>
#include <string>
#include <string_view>

#include "host/store/connection.h"
#include "host/store/store_status.h"

namespace host::store {

/// What the code of a failure on the server stands for (PostgreSQL manual, appendix A). A failure
/// without a code never reached the server.
StoreError postgresErrorOf(std::string_view sqlState);

/// A connection whose commits are on the server's disk when they succeed. When the connection
/// breaks during a commit nobody knows whether it counted; it is a failure here.
class PostgresConnection final : public Connection {
 public:
  /// \param location  a connection string as libpq takes it
  /// \param lockTimeoutMs  how long to wait for others
  PostgresConnection(const std::string& location, int lockTimeoutMs);

  std::unique_ptr<Statement> statement(const char* text) override;
  void execute(const std::string& text) override;
  void begin(TransactionMode mode) override;
  void commit() override;
  void rollback() noexcept override;
  void lockTables() override;
  std::int64_t countTables() override;
  std::int64_t countTables(const std::string& name) override;
  void findDamage(std::vector<std::string>& faults) override;
  std::string inDialect(std::string_view text) const override;

 private:
  pqxx::connection connection_;
  pqxx::quiet_errorhandler quiet_;  ///< notices are nobody's business
  pqxx::nontransaction session_;    ///< transactions are begun and ended by statements of ours
  std::map<std::string, std::string, std::less<>> names_;
};

}  // namespace host::store
