// One connection to a SQLite file, and statements on it.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/store/store_status.h"

namespace host::store {

/// What an exception of the database library stands for.
StoreError sqliteErrorOf(const SQLite::Exception& fault);

/// A connection with the settings of every connection of ours: write-ahead log, foreign keys, full
/// synchronisation. One thread at a time.
class SqliteConnection {
 public:
  /// Opens \p path, which exists. \throw SQLite::Exception
  SqliteConnection(const std::string& path, int busyTimeoutMs);
  SqliteConnection(const SqliteConnection&) = delete;
  SqliteConnection& operator=(const SqliteConnection&) = delete;

  /// The statement of \p text, prepared once.
  SQLite::Statement& prepared(const char* text);

  SQLite::Database& database() { return database_; }

 private:
  SQLite::Database database_;
  std::map<std::string, std::unique_ptr<SQLite::Statement>, std::less<>> statements_;
};

/// One use of a prepared statement; it is free for the next one afterwards. Throws
/// SQLite::Exception.
class SqliteQuery {
 public:
  SqliteQuery(SqliteConnection& connection, const char* text);
  ~SqliteQuery();
  SqliteQuery(const SqliteQuery&) = delete;
  SqliteQuery& operator=(const SqliteQuery&) = delete;

  /// Binds the next parameter. Texts go as bytes.
  SqliteQuery& bind(std::int64_t number);
  SqliteQuery& bind(std::string_view bytes);
  SqliteQuery& bindNull();
  template <class Value>
  SqliteQuery& bindOptional(const std::optional<Value>& value) {
    return value ? bind(*value) : bindNull();
  }

  /// Goes to the next row. \return false behind the last one.
  bool next() { return statement_.executeStep(); }

  /// Runs a statement that has no rows. \return how many rows it changed.
  int run() { return statement_.exec(); }

  bool isNull(int column) const { return statement_.isColumnNull(column); }
  std::int64_t number(int column) const { return statement_.getColumn(column).getInt64(); }
  std::string bytes(int column) const;

 private:
  SQLite::Statement& statement_;
  int bound_ = 0;
};

/// A transaction that holds the write lock from its begin; rolled back unless it is committed.
class SqliteTransaction {
 public:
  explicit SqliteTransaction(SqliteConnection& connection);
  ~SqliteTransaction();
  SqliteTransaction(const SqliteTransaction&) = delete;
  SqliteTransaction& operator=(const SqliteTransaction&) = delete;

  void commit();

 private:
  SqliteConnection& connection_;
  bool open_ = true;
};

}  // namespace host::store
