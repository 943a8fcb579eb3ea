// The store in memory: SQLite's tables without a file.
#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "host/store/schema.h"
#include "host/store/sql_store.h"
#include "host/store/sqlite_connection.h"
#include "host/store/store.h"

namespace host::store {

namespace {

constexpr int kNoTimeout = 0;  // there is nobody to wait for

// Keeps one connection itself: the database lives as long as that.
class MemoryPool final : public ConnectionPool {
 public:
  MemoryPool() : name_("kavi" + std::to_string(++made_)) {}

  std::unique_ptr<Connection> take() override {
    if (idle_ != nullptr) return std::move(idle_);
    auto connection = look();
    if (kept_ == nullptr) {
      migrate(*connection, schemaSteps());
      kept_ = look();
    }
    return connection;
  }
  std::unique_ptr<Connection> look() override {
    return std::make_unique<SqliteConnection>(name_, kNoTimeout, SqliteConnection::Medium::Memory);
  }
  void giveBack(std::unique_ptr<Connection> connection) override { idle_ = std::move(connection); }
  void dropIdle() override { idle_.reset(); }
  bool hasOneWriter() const override { return true; }
  const std::string& location() const override { return location_; }

 private:
  static inline std::atomic<unsigned long> made_{0};

  std::string name_;
  std::string location_ = "memory";
  std::unique_ptr<Connection> kept_;
  std::unique_ptr<Connection> idle_;
};

}  // namespace

std::unique_ptr<Database> makeMemoryStore() {
  return std::make_unique<SqlStore>(std::make_unique<MemoryPool>());
}

}  // namespace host::store
