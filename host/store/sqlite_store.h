// The store in one file of its own.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "host/core/file_ops.h"
#include "host/store/sqlite_pool.h"
#include "host/store/store.h"

namespace host::store {

struct SqliteOptions {
  int busyTimeoutMs = 10'000;  ///< how long to wait for other processes
};

/// A SQLite file with a write-ahead log beside it ("-wal", "-shm"). Every change is flushed to the
/// device before its operation succeeds.
class KAVI_API SqliteStore final : public Store {
 public:
  explicit SqliteStore(const std::string& path, const SqliteOptions& options = {},
                       core::FileOps& ops = core::FileOps::system());
  ~SqliteStore() override;

  StoreStatus prepare() override;

  StoreStatus addEntry(const IndexEntry& entry, const Finishes* finishes,
                       std::int64_t& row) override;
  StoreStatus addMissing(const IndexEntry& entry, bool& added) override;
  StoreStatus removeEntry(std::int64_t row) override;
  StoreStatus removePath(const std::string& path) override;
  StoreStatus findEntry(std::int64_t row, IndexEntry& entry) override;
  StoreStatus findPath(const std::string& path, IndexEntry& entry) override;
  StoreStatus findMessage(const std::string& messageId, std::vector<IndexEntry>& entries) override;
  StoreStatus list(const IndexPage& page, std::vector<IndexEntry>& entries) override;
  StoreStatus listExpired(std::int64_t now, std::size_t limit,
                          std::vector<IndexEntry>& entries) override;
  StoreStatus listPaths(const std::string& prefix, const std::string& after, std::size_t limit,
                        std::vector<IndexPath>& paths) override;

  StoreStatus beginEffect(const EffectKey& key, const EffectClaim& claim,
                          EffectAnswer& answer) override;
  StoreStatus finishEffect(const EffectKey& key, const std::string& owner,
                           const std::string& result) override;
  StoreStatus abandonEffect(const EffectKey& key, const std::string& owner) override;
  StoreStatus reopenEffect(const EffectKey& key, const std::string& result) override;
  StoreStatus forgetMessage(const Digest& message) override;
  StoreStatus forgetBefore(std::int64_t time, std::size_t& dropped) override;

 private:
  enum class Access { Read, Write };
  using Work = std::function<void(SqliteConnection&)>;

  /// Runs \p work on a connection; with Write in a transaction that is committed behind it.
  StoreStatus run(const char* doing, Access access, const Work& work);
  void runOn(SqliteConnection& connection, Access access, const Work& work);

  SqlitePool pool_;
  std::mutex writing_;  ///< the file takes one writer at a time; waiting here is fair and cheap
};

}  // namespace host::store
