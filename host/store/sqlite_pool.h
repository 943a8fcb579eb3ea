// Connections to a SQLite file.
#pragma once

#include <sys/types.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/core/file_ops.h"
#include "host/store/connection.h"
#include "host/store/store_status.h"

namespace host::store {

/// What is wrong with \p path as the place of a store, as far as it can be told without a look at
/// the disk; empty when nothing is.
std::string sqlitePathFault(const std::string& path);

class SqlitePool final : public ConnectionPool {
 public:
  SqlitePool(const std::string& path, int busyTimeoutMs, Upkeep upkeep, core::FileOps& ops);

  /// The file is made (mode 0600, in a folder of mode 0700) when it is missing, if that is wanted.
  std::unique_ptr<Connection> take() override;
  std::unique_ptr<Connection> look() override;
  void giveBack(std::unique_ptr<Connection> connection) override;
  void dropIdle() override;
  bool hasOneWriter() const override { return true; }
  const std::string& location() const override { return path_; }

 private:
  struct Identity {
    dev_t device = 0;
    ino_t file = 0;
    bool operator==(const Identity&) const = default;
  };

  std::unique_ptr<Connection> open();
  std::unique_ptr<Connection> openNewest();
  std::unique_ptr<Connection> openExisting();
  Identity identity() const;

  std::string path_;
  int busyTimeoutMs_;
  Upkeep upkeep_;
  core::FileOps& ops_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<Connection>> idle_;
  Identity opened_;  ///< the file that the idle ones are open on
};

}  // namespace host::store
