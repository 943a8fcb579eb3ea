// One connection to a database, and statements on it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host::store {

/// One use of a prepared statement. Everything throws StoreFailure.
class Statement {
 public:
  virtual ~Statement() = default;
  /// Parameters are bound in order, all of them before the first row. Texts go as bytes.
  virtual void bind(std::int64_t number) = 0;
  virtual void bind(std::string_view bytes) = 0;
  virtual void bindNull() = 0;
  /// Goes to the next row. \return false behind the last one.
  virtual bool next() = 0;
  /// Runs a statement that has no rows. \return how many rows it changed.
  virtual int run() = 0;
  /// Columns of the present row, counted from 0.
  virtual bool isNull(int column) const = 0;
  virtual std::int64_t number(int column) const = 0;
  virtual std::string bytes(int column) const = 0;
};

enum class TransactionMode {
  Read,   ///< sees the store as it is at the first statement, whatever others change meanwhile
  Write,  ///< sees what others have committed
};

/// A connection; one thread at a time. Everything throws StoreFailure.
class Connection {
 public:
  Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  virtual ~Connection() = default;

  /// \param text  a constant: it is prepared once, in this database's words, and known by its
  ///   address's content afterwards
  virtual std::unique_ptr<Statement> statement(const char* text) = 0;
  /// Runs a text that has no parameters and whose rows nobody wants.
  virtual void execute(const std::string& text) = 0;

  /// Whether the other side is still there, as far as can be told without asking it anything.
  virtual bool isOpen() const = 0;

  virtual void begin(TransactionMode mode) = 0;
  virtual void commit() = 0;
  /// Takes back what is not committed, if there is anything. Never throws.
  virtual void rollback() noexcept = 0;

  /// Keeps everybody else from making or changing tables until the transaction ends.
  virtual void lockTables() = 0;
  /// How many tables there are, and of those how many are called \p name.
  virtual std::int64_t countTables() = 0;
  virtual std::int64_t countTables(const std::string& name) = 0;
  /// Looks for damage below the tables, as far as the database can tell, and says what there is.
  virtual void findDamage(std::vector<std::string>& faults) = 0;
  /// \p text in this database's words, see Dialect; empty when it is not for this one.
  virtual std::string inDialect(std::string_view text) const = 0;
};

/// A statement in use; shorter to write.
class Query {
 public:
  Query(Connection& connection, const char* text) : statement_(connection.statement(text)) {}

  Query& bind(std::int64_t number) {
    statement_->bind(number);
    return *this;
  }
  Query& bind(std::string_view bytes) {
    statement_->bind(bytes);
    return *this;
  }
  template <class Value>
  Query& bindOptional(const std::optional<Value>& value) {
    if (value) return bind(*value);
    statement_->bindNull();
    return *this;
  }

  bool next() { return statement_->next(); }
  int run() { return statement_->run(); }

  bool isNull(int column) const { return statement_->isNull(column); }
  std::int64_t number(int column) const { return statement_->number(column); }
  std::string bytes(int column) const { return statement_->bytes(column); }

 private:
  std::unique_ptr<Statement> statement_;
};

/// A transaction, rolled back unless it is committed.
class Transaction {
 public:
  Transaction(Connection& connection, TransactionMode mode) : connection_(connection) {
    connection_.begin(mode);
  }
  ~Transaction() {
    if (open_) connection_.rollback();
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit() {
    connection_.commit();
    open_ = false;
  }

 private:
  Connection& connection_;
  bool open_ = true;
};

/// Opens connections to one database, and keeps a few idle ones. Safe from any thread.
class ConnectionPool {
 public:
  virtual ~ConnectionPool() = default;
  /// A connection for one call, to a store whose tables are up to date. \throw StoreFailure
  virtual std::unique_ptr<Connection> take() = 0;
  /// A connection to the store as it stands, neither made nor brought up to date: not to be given
  /// back. Null when there is nothing. \throw StoreFailure
  virtual std::unique_ptr<Connection> look() = 0;
  /// Gives one back that is fit for further use.
  virtual void giveBack(std::unique_ptr<Connection> connection) = 0;
  /// Closes those that wait: the database was away, and they with it.
  virtual void dropIdle() = 0;
  /// Whether the database takes one writer at a time: waiting in the process is fair and cheap.
  virtual bool hasOneWriter() const = 0;
  /// What to call the store in messages; without secrets.
  virtual const std::string& location() const = 0;
};

}  // namespace host::store
