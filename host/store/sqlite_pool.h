// Connections that are kept for the next call.
#pragma once

#include <sys/types.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/core/file_ops.h"
#include "host/store/sqlite_connection.h"

namespace host::store {

/// Opens connections to one SQLite file, and keeps a few idle ones. Safe from any thread.
class SqlitePool {
 public:
  SqlitePool(std::string path, int busyTimeoutMs, core::FileOps& ops);

  /// A connection for one call. The file is made (mode 0600, in a folder of mode 0700) when it is
  /// missing, and its tables are brought up to date. \throw StoreFailure, SQLite::Exception
  std::unique_ptr<SqliteConnection> take();

  /// Gives one back that is fit for further use.
  void giveBack(std::unique_ptr<SqliteConnection> connection);

  const std::string& path() const { return path_; }

 private:
  struct Identity {
    dev_t device = 0;
    ino_t file = 0;
    bool operator==(const Identity&) const = default;
  };

  std::unique_ptr<SqliteConnection> open();
  Identity identity() const;

  std::string path_;
  int busyTimeoutMs_;
  core::FileOps& ops_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<SqliteConnection>> idle_;
  Identity opened_;  ///< the file that the idle ones are open on
};

}  // namespace host::store
