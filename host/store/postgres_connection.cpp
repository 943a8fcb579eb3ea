#include "host/store/postgres_connection.h"

#include <poll.h>

#include <array>
#include <chrono>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "host/store/dialect.h"
#include "host/store/postgres_refusal.h"
#include "host/store/store_failure.h"

namespace host::store {

namespace {

constexpr char kBeginRead[] = "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY";
constexpr char kBeginWrite[] = "BEGIN ISOLATION LEVEL READ COMMITTED READ WRITE";
constexpr char kCountTables[] =
    "SELECT count(*) FROM pg_catalog.pg_class WHERE relkind = 'r' AND "
    "relnamespace = current_schema()::regnamespace";
constexpr char kCountNamed[] =
    "SELECT count(*) FROM pg_catalog.pg_class WHERE relkind = 'r' AND "
    "relnamespace = current_schema()::regnamespace AND relname = convert_from($1, 'UTF8')";
// Any number that other programs are unlikely to lock by.
constexpr char kLockTables[] = "SELECT pg_advisory_xact_lock(7305806139250119)";

struct ErrorClass {
  std::string_view prefix;
  StoreError error;
};

// The longest prefix that fits counts.
constexpr ErrorClass kErrorClasses[] = {
    {"53100", StoreError::Full},
    {"53300", StoreError::Busy},
    {"55P03", StoreError::Busy},
    {"57014", StoreError::Busy},
    {"40", StoreError::Busy},
    {"40003", StoreError::Unavailable},
    {"42501", StoreError::Permission},
    {"25006", StoreError::ReadOnly},
    {"58030", StoreError::InputOutput},
    {"XX001", StoreError::Damaged},
    {"XX002", StoreError::Damaged},
    {"23502", StoreError::Damaged},
    {"08", StoreError::Unavailable},
    {"3D", StoreError::Unavailable},
    {"57", StoreError::Unavailable},
    {"53", StoreError::Unavailable},
    {"3F", StoreError::Unavailable},
    {"28", StoreError::Permission},
    {"23", StoreError::Conflict},
    {"22", StoreError::InvalidArgument},
    {"54", StoreError::InvalidArgument},
    {"42", StoreError::Damaged},
};

// The first line says what happened; what follows points into the statement.
std::string firstLine(const char* text) {
  const std::string_view whole(text);
  return std::string(whole.substr(0, whole.find('\n')));
}

// What a failed statement's text is worth to an administrator. On limits the server names its own
// parts and advises on tables, which are none of theirs.
std::string detailOf(const pqxx::sql_error& fault) {
  if (fault.sqlstate().starts_with("54")) return "a value is larger than the server takes there";
  return firstLine(fault.what());
}

// The code of a failure. Of some kinds the database library keeps it to itself.
std::string stateOf(const pqxx::sql_error& fault) {
  if (!fault.sqlstate().empty()) return fault.sqlstate();
  if (dynamic_cast<const pqxx::insufficient_privilege*>(&fault) != nullptr) return "42501";
  if (dynamic_cast<const pqxx::disk_full*>(&fault) != nullptr) return "53100";
  if (dynamic_cast<const pqxx::insufficient_resources*>(&fault) != nullptr) return "53000";
  return {};
}

// Runs `body`; what the database library throws becomes a failure of ours.
template <class Body>
auto translated(Body&& body) {
  try {
    return std::forward<Body>(body)();
  } catch (const pqxx::too_many_connections& fault) {
    throw StoreFailure(StoreError::Busy, firstLine(fault.what()));
  } catch (const pqxx::broken_connection& fault) {
    throw StoreFailure(StoreError::Unavailable, firstLine(fault.what()));
  } catch (const pqxx::sql_error& fault) {
    throw StoreFailure(postgresErrorOf(stateOf(fault)), detailOf(fault));
  } catch (const pqxx::statement_completion_unknown& fault) {
    throw StoreFailure(StoreError::Unavailable, firstLine(fault.what()));
  } catch (const pqxx::transaction_rollback& fault) {  // a deadlock, or a change of the same row
    throw StoreFailure(StoreError::Busy, firstLine(fault.what()));
  } catch (const pqxx::failure& fault) {
    throw StoreFailure(StoreError::Internal, firstLine(fault.what()));
  } catch (const std::logic_error& fault) {  // a column that holds something else
    throw StoreFailure(StoreError::Damaged, firstLine(fault.what()));
  }
}

/// Runs `body`, which waits for the server, no longer than the line's patience.
template <class Body>
auto answered(Patience::Line& line, Body&& body) {
  const Patience::Line::Waiting waiting(line);
  try {
    return translated(std::forward<Body>(body));
  } catch (const StoreFailure&) {
    if (!line.isGivenUp()) throw;
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(line.longest()).count();
    throw StoreFailure(StoreError::Unavailable,
                       "no answer within " + std::to_string(seconds) + " s");
  }
}

// A connection; where the server lets nobody in, the failure says for which reason.
pqxx::connection connected(const std::string& location) {
  try {
    return pqxx::connection(location);
  } catch (const pqxx::broken_connection& fault) {
    throw StoreFailure(postgresErrorOf(refusalOf(location)), firstLine(fault.what()));
  }
}

std::string asHex(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "\\x";
  text.reserve(2 * bytes.size() + 2);
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += kDigits[value >> 4];
    text += kDigits[value & 15];
  }
  return text;
}

class PostgresStatement final : public Statement {
 public:
  PostgresStatement(pqxx::nontransaction& session, Patience::Line& line, const std::string& name)
      : session_(session), line_(line), name_(name) {}

  void bind(std::int64_t number) override { values_.emplace_back(std::to_string(number)); }
  void bind(std::string_view bytes) override {
    constexpr std::size_t kMost = std::size_t{1} << 29;  // half a gigabyte: a value's limit in hex
    if (bytes.size() > kMost) {
      throw StoreFailure(StoreError::InvalidArgument, "a value of more than 512 MB");
    }
    values_.emplace_back(asHex(bytes));
  }
  void bindNull() override { values_.emplace_back(std::nullopt); }

  bool next() override {
    if (!rows_) {
      execute();
      return !rows_->empty();
    }
    ++row_;
    return row_ < rows_->size();
  }
  int run() override {
    execute();
    return static_cast<int>(rows_->affected_rows());
  }
  bool isNull(int column) const override { return at(column).is_null(); }
  std::int64_t number(int column) const override {
    return translated([&] { return at(column).as<std::int64_t>(); });
  }
  std::string bytes(int column) const override {
    return translated([&]() -> std::string {
      const pqxx::field field = at(column);
      return field.is_null() ? std::string() : pqxx::binarystring(field).str();
    });
  }

 private:
  pqxx::field at(int column) const { return (*rows_)[row_][column]; }

  void execute() {
    std::vector<const char*> parameters;
    parameters.reserve(values_.size());
    for (const auto& value : values_) parameters.push_back(value ? value->c_str() : nullptr);
    answered(line_, [&] {
      rows_ = session_.exec_prepared(name_, pqxx::prepare::make_dynamic_params(parameters));
    });
  }

  pqxx::nontransaction& session_;
  Patience::Line& line_;
  const std::string& name_;
  std::vector<std::optional<std::string>> values_;
  std::optional<pqxx::result> rows_;
  pqxx::result::size_type row_ = 0;
};

}  // namespace

StoreError postgresErrorOf(std::string_view sqlState) {
  if (sqlState.empty()) return StoreError::Unavailable;
  for (const ErrorClass& known : kErrorClasses) {
    if (sqlState.substr(0, known.prefix.size()) == known.prefix) return known.error;
  }
  return StoreError::Internal;
}

PostgresConnection::PostgresConnection(const std::string& location, int lockTimeoutMs,
                                       std::shared_ptr<Patience> patience)
    : patience_(std::move(patience)),
      connection_(translated([&] { return connected(location); })),
      line_(*patience_, connection_.sock()),
      quiet_(connection_),
      session_(connection_) {
  const std::string timeout = std::to_string(lockTimeoutMs);
  for (const std::string& text :
       {std::string("SET synchronous_commit = on"), "SET lock_timeout = " + timeout,
        "SET idle_in_transaction_session_timeout = " + std::to_string(60'000)}) {
    execute(text);
  }
}

std::unique_ptr<Statement> PostgresConnection::statement(const char* text) {
  auto name = names_.find(std::string_view(text));
  if (name == names_.end()) {
    const std::string next = "kavi" + std::to_string(names_.size());
    answered(line_, [&] { connection_.prepare(next, inDialect(text)); });
    name = names_.emplace(text, next).first;
  }
  return std::make_unique<PostgresStatement>(session_, line_, name->second);
}

void PostgresConnection::execute(const std::string& text) {
  answered(line_, [&] { session_.exec(text); });
}

bool PostgresConnection::isOpen() const {
  // A server that goes away says so on each connection, and says nothing otherwise.
  pollfd waiting{connection_.sock(), POLLIN, 0};
  return waiting.fd >= 0 && ::poll(&waiting, 1, 0) == 0;
}

void PostgresConnection::begin(TransactionMode mode) {
  execute(mode == TransactionMode::Write ? kBeginWrite : kBeginRead);
}

void PostgresConnection::commit() {
  try {
    execute("COMMIT");
  } catch (const StoreFailure& failure) {
    if (failure.error() != StoreError::Unavailable) throw;
    throw StoreFailure(failure.error(),
                       failure.what() + std::string(", and whether the change was made is unknown"),
                       true);
  }
}

void PostgresConnection::rollback() noexcept {
  try {
    execute("ROLLBACK");
  } catch (...) {
    return;  // the connection is gone, and the transaction with it
  }
}

void PostgresConnection::lockTables() { execute(kLockTables); }

std::int64_t PostgresConnection::countTables() {
  Query query(*this, kCountTables);
  query.next();
  return query.number(0);
}

std::int64_t PostgresConnection::countTables(const std::string& name) {
  Query query(*this, kCountNamed);
  query.bind(std::string_view(name));
  query.next();
  return query.number(0);
}

// The server has no statement for that; a damaged page fails when it is read.
void PostgresConnection::findDamage(std::vector<std::string>& /*faults*/) {}

std::string PostgresConnection::inDialect(std::string_view text) const {
  return inWordsOf({"BYTEA", "BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY", "sha256", true},
                   text);
}

}  // namespace host::store
