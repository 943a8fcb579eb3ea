#include "host/store/sqlite_connection.h"

#include <sqlite3.h>

#include <limits>

#include "host/store/store_failure.h"

namespace host::store {

namespace {

constexpr int kPrimaryCode = 0xFF;  // the rest of a result code says it more exactly
constexpr char kBegin[] = "BEGIN IMMEDIATE";
constexpr char kCommit[] = "COMMIT";

}  // namespace

StoreError sqliteErrorOf(const SQLite::Exception& fault) {
  switch (fault.getErrorCode() & kPrimaryCode) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return StoreError::Busy;
    case SQLITE_FULL:
      return StoreError::Full;
    case SQLITE_READONLY:
      return StoreError::ReadOnly;
    case SQLITE_PERM:
    case SQLITE_AUTH:
      return StoreError::Permission;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_FORMAT:
    case SQLITE_ERROR:  // the statements are right, so the tables are not
      return StoreError::Damaged;
    case SQLITE_CANTOPEN:
      return StoreError::Unavailable;
    case SQLITE_IOERR:
    case SQLITE_PROTOCOL:
      return StoreError::InputOutput;
    case SQLITE_NOMEM:
      return StoreError::OutOfMemory;
    case SQLITE_CONSTRAINT:
      return StoreError::Conflict;
    case SQLITE_TOOBIG:
    case SQLITE_MISMATCH:
      return StoreError::InvalidArgument;
    default:
      return StoreError::Internal;
  }
}

SqliteConnection::SqliteConnection(const std::string& path, int busyTimeoutMs)
    : database_(path, SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX, busyTimeoutMs) {
  // The answer to this one is a row, which `exec` would take for an error in older libraries.
  SQLite::Statement mode(database_, "PRAGMA journal_mode = WAL");
  mode.executeStep();
  if (mode.getColumn(0).getString() != "wal") {
    throw StoreFailure(StoreError::InputOutput, "its disk allows no write-ahead log");
  }
  database_.exec("PRAGMA synchronous = FULL");
  database_.exec("PRAGMA foreign_keys = ON");
  database_.exec("PRAGMA trusted_schema = OFF");
}

SQLite::Statement& SqliteConnection::prepared(const char* text) {
  auto found = statements_.find(std::string_view(text));
  if (found == statements_.end()) {
    auto statement = std::make_unique<SQLite::Statement>(database_, text);
    found = statements_.emplace(text, std::move(statement)).first;
  }
  return *found->second;
}

SqliteQuery::SqliteQuery(SqliteConnection& connection, const char* text)
    : statement_(connection.prepared(text)) {}

SqliteQuery::~SqliteQuery() {
  // The result repeats the last step's, which was looked at then.
  statement_.tryReset();
}

SqliteQuery& SqliteQuery::bind(std::int64_t number) {
  statement_.bind(++bound_, number);
  return *this;
}

SqliteQuery& SqliteQuery::bind(std::string_view bytes) {
  if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    throw StoreFailure(StoreError::InvalidArgument, "a value of more than 2 GB");
  }
  // A null pointer would be taken for NULL.
  const char* data = bytes.data() != nullptr ? bytes.data() : "";
  statement_.bind(++bound_, data, static_cast<int>(bytes.size()));
  return *this;
}

SqliteQuery& SqliteQuery::bindNull() {
  statement_.bind(++bound_);
  return *this;
}

std::string SqliteQuery::bytes(int column) const {
  const SQLite::Column value = statement_.getColumn(column);
  const void* data = value.getBlob();
  const int size = value.getBytes();
  if (data == nullptr || size <= 0) return {};
  return {static_cast<const char*>(data), static_cast<std::size_t>(size)};
}

SqliteTransaction::SqliteTransaction(SqliteConnection& connection) : connection_(connection) {
  SqliteQuery(connection_, kBegin).run();
}

SqliteTransaction::~SqliteTransaction() {
  // Some failures have rolled back already; then there is nothing to do.
  if (open_) connection_.database().tryExec("ROLLBACK");
}

void SqliteTransaction::commit() {
  SqliteQuery(connection_, kCommit).run();
  open_ = false;
}

}  // namespace host::store
