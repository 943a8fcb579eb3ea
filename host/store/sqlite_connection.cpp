#include "host/store/sqlite_connection.h"

#include <sqlite3.h>

#include <limits>
#include <utility>

#include "host/core/text_escape.h"
#include "host/store/dialect.h"
#include "host/store/store_failure.h"

namespace host::store {

namespace {

constexpr int kPrimaryCode = 0xFF;  // the rest of a result code says it more exactly
constexpr char kBeginRead[] = "BEGIN";
constexpr char kBeginWrite[] = "BEGIN IMMEDIATE";
constexpr char kCommit[] = "COMMIT";
constexpr char kCheckFile[] = "PRAGMA integrity_check(100)";
constexpr char kCheckReferences[] =
    "SELECT \"table\", rowid, parent FROM pragma_foreign_key_check LIMIT 100";
constexpr char kCountTables[] = "SELECT count(*) FROM sqlite_schema";
constexpr char kCountNamed[] = "SELECT count(*) FROM sqlite_schema WHERE name = CAST($1 AS TEXT)";

// Runs `body`; what the database library throws becomes a failure of ours.
template <class Body>
auto translated(Body&& body) {
  try {
    return std::forward<Body>(body)();
  } catch (const SQLite::Exception& fault) {
    throw StoreFailure(sqliteErrorOf(fault), fault.what());
  }
}

class SqliteStatement final : public Statement {
 public:
  explicit SqliteStatement(SQLite::Statement& statement) : statement_(statement) {}
  SqliteStatement(const SqliteStatement&) = delete;
  SqliteStatement& operator=(const SqliteStatement&) = delete;
  ~SqliteStatement() override {
    // The result repeats the last step's, which was looked at then.
    statement_.tryReset();
  }

  void bind(std::int64_t number) override {
    translated([&] { statement_.bind(++bound_, number); });
  }
  void bind(std::string_view bytes) override {
    if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
      throw StoreFailure(StoreError::InvalidArgument, "a value of more than 2 GB");
    }
    // A null pointer would be taken for NULL.
    const char* data = bytes.data() != nullptr ? bytes.data() : "";
    translated([&] { statement_.bind(++bound_, data, static_cast<int>(bytes.size())); });
  }
  void bindNull() override {
    translated([&] { statement_.bind(++bound_); });
  }
  bool next() override {
    return translated([&] { return statement_.executeStep(); });
  }
  int run() override {
    return translated([&] { return statement_.exec(); });
  }
  bool isNull(int column) const override {
    return translated([&] { return statement_.isColumnNull(column); });
  }
  std::int64_t number(int column) const override {
    return translated([&] { return statement_.getColumn(column).getInt64(); });
  }
  std::string bytes(int column) const override {
    return translated([&]() -> std::string {
      const SQLite::Column value = statement_.getColumn(column);
      const void* data = value.getBlob();
      const int size = value.getBytes();
      if (data == nullptr || size <= 0) return {};
      return {static_cast<const char*>(data), static_cast<std::size_t>(size)};
    });
  }

 private:
  SQLite::Statement& statement_;
  int bound_ = 0;
};

using Medium = SqliteConnection::Medium;

SQLite::Database opened(const std::string& path, int busyTimeoutMs, Medium medium) {
  return translated([&] {
    int flags = SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX;
    if (medium == Medium::File) return SQLite::Database(path, flags, busyTimeoutMs);
    // A name that begins with a slash is that of a database which connections share.
    flags |= SQLite::OPEN_CREATE | SQLite::OPEN_URI;
    return SQLite::Database("file:/" + path + "?vfs=memdb", flags, busyTimeoutMs);
  });
}

void useWriteAheadLog(SQLite::Database& database) {
  // The answer to this one is a row, which `exec` would take for an error in older libraries.
  SQLite::Statement mode(database, "PRAGMA journal_mode = WAL");
  mode.executeStep();
  if (mode.getColumn(0).getString() != "wal") {
    throw StoreFailure(StoreError::InputOutput, "its disk allows no write-ahead log");
  }
}

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
      // The -shm file cannot grow. SQLite sees a full disk itself only where it writes the others.
      return fault.getExtendedErrorCode() == SQLITE_IOERR_SHMSIZE ? StoreError::Full
                                                                  : StoreError::InputOutput;
    case SQLITE_PROTOCOL:
      return StoreError::InputOutput;
    case SQLITE_NOMEM:
      return StoreError::OutOfMemory;
    case SQLITE_CONSTRAINT:
      // No statement of ours writes a NULL where none may stand.
      return fault.getExtendedErrorCode() == SQLITE_CONSTRAINT_NOTNULL ? StoreError::Damaged
                                                                       : StoreError::Conflict;
    case SQLITE_TOOBIG:
    case SQLITE_MISMATCH:
      return StoreError::InvalidArgument;
    default:
      return StoreError::Internal;
  }
}

SqliteConnection::SqliteConnection(const std::string& path, int busyTimeoutMs, Medium medium)
    : database_(opened(path, busyTimeoutMs, medium)) {
  translated([&] {
    if (medium == Medium::File) useWriteAheadLog(database_);
    database_.exec("PRAGMA synchronous = FULL");
    database_.exec("PRAGMA foreign_keys = ON");
    database_.exec("PRAGMA trusted_schema = OFF");
  });
}

SQLite::Statement& SqliteConnection::prepared(const char* text) {
  auto found = statements_.find(std::string_view(text));
  if (found == statements_.end()) {
    auto statement = std::make_unique<SQLite::Statement>(database_, inDialect(text));
    found = statements_.emplace(text, std::move(statement)).first;
  }
  return *found->second;
}

std::unique_ptr<Statement> SqliteConnection::statement(const char* text) {
  return translated([&] { return std::make_unique<SqliteStatement>(prepared(text)); });
}

void SqliteConnection::execute(const std::string& text) {
  translated([&] { database_.exec(text); });
}

void SqliteConnection::begin(TransactionMode mode) {
  Query(*this, mode == TransactionMode::Write ? kBeginWrite : kBeginRead).run();
}

void SqliteConnection::commit() { Query(*this, kCommit).run(); }

void SqliteConnection::rollback() noexcept {
  // Some failures have rolled back already; then there is nothing to do.
  database_.tryExec("ROLLBACK");
}

// A transaction that writes has locked the whole file.
void SqliteConnection::lockTables() {}

std::int64_t SqliteConnection::countTables() {
  Query query(*this, kCountTables);
  query.next();
  return query.number(0);
}

std::int64_t SqliteConnection::countTables(const std::string& name) {
  Query query(*this, kCountNamed);
  query.bind(std::string_view(name));
  query.next();
  return query.number(0);
}

void SqliteConnection::findDamage(std::vector<std::string>& faults) {
  {
    Query query(*this, kCheckFile);
    while (query.next()) {
      std::string line = query.bytes(0);
      if (line != "ok") faults.push_back("the file: " + core::printable(line));
    }
  }
  Query query(*this, kCheckReferences);
  while (query.next()) {
    faults.push_back("table " + core::printable(query.bytes(0)) + ": row " +
                     std::to_string(query.number(1)) + " refers to what is not there in table " +
                     core::printable(query.bytes(2)));
  }
}

std::string SqliteConnection::inDialect(std::string_view text) const {
  return inWordsOf({"BLOB", "INTEGER PRIMARY KEY AUTOINCREMENT", "", false}, text);
}

}  // namespace host::store
