// One connection to a SQLite file.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "host/store/connection.h"
#include "host/store/store_status.h"

namespace host::store {

/// What an exception of the database library stands for.
StoreError sqliteErrorOf(const SQLite::Exception& fault);

/// A connection with the settings of every connection of ours: write-ahead log, foreign keys, full
/// synchronisation. A transaction that writes holds the write lock from its begin.
class SqliteConnection final : public Connection {
 public:
  /// Where the database stands.
  enum class Medium {
    File,    ///< at a path, which exists
    Memory,  ///< under a name for the length of the process, as long as it has a connection
  };

  SqliteConnection(const std::string& path, int busyTimeoutMs, Medium medium = Medium::File);

  std::unique_ptr<Statement> statement(const char* text) override;
  void execute(const std::string& text) override;
  bool isOpen() const override { return true; }
  void begin(TransactionMode mode) override;
  void commit() override;
  void rollback() noexcept override;
  void lockTables() override;
  std::int64_t countTables() override;
  std::int64_t countTables(const std::string& name) override;
  void findDamage(std::vector<std::string>& faults) override;
  std::string inDialect(std::string_view text) const override;

  SQLite::Database& database() { return database_; }

 private:
  SQLite::Statement& prepared(const char* text);

  SQLite::Database database_;
  std::map<std::string, std::unique_ptr<SQLite::Statement>, std::less<>> statements_;
};

}  // namespace host::store
