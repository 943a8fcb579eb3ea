// One connection to a PostgreSQL database.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <pqxx/pqxx>
#include <string>
#include <string_view>

#include "host/store/connection.h"
#include "host/store/patience.h"
#include "host/store/store_status.h"

namespace host::store {

/// What the code of a failure on the server stands for (PostgreSQL manual, appendix A). A failure
/// without a code never reached the server.
StoreError postgresErrorOf(std::string_view sqlState);

/// A statement takes seconds at the very most.
inline constexpr std::chrono::milliseconds kPatience{60'000};

/// A connection whose commits are on the server's disk when they succeed. When the connection
/// breaks during a commit nobody knows whether it counted; it is a failure here.
class PostgresConnection final : public Connection {
 public:
  /// \param location  a connection string as libpq takes it
  /// \param lockTimeoutMs  how long to wait for others
  /// \param patience  how long to wait for an answer; connections may share it
  PostgresConnection(const std::string& location, int lockTimeoutMs,
                     std::shared_ptr<Patience> patience = std::make_shared<Patience>(kPatience));

  std::unique_ptr<Statement> statement(const char* text) override;
  void execute(const std::string& text) override;
  bool isOpen() const override;
  void begin(TransactionMode mode) override;
  void commit() override;
  void rollback() noexcept override;
  void lockTables() override;
  std::int64_t countTables() override;
  std::int64_t countTables(const std::string& name) override;
  void findDamage(std::vector<std::string>& faults) override;
  std::string inDialect(std::string_view text) const override;

 private:
  std::shared_ptr<Patience> patience_;
  pqxx::connection connection_;
  Patience::Line line_;
  pqxx::quiet_errorhandler quiet_;  ///< notices are nobody's business
  pqxx::nontransaction session_;    ///< transactions are begun and ended by statements of ours
  std::map<std::string, std::string, std::less<>> names_;
};

}  // namespace host::store
