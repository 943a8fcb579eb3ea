// The store on a SQL database.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/store/store.h"

namespace host::store {

class Connection;
class ConnectionPool;

/// Every change is flushed to the device before its operation succeeds. The statements are the same
/// for every database (sql_texts.h).
class KAVI_API SqlStore : public Database {
 public:
  explicit SqlStore(std::unique_ptr<ConnectionPool> pool);
  ~SqlStore() override;

  StoreStatus prepare() override;
  void observe(StoreObserver* observer) override { observer_ = observer; }
  StoreStatus readForm(StoreForm& form) override;
  const std::string& location() const override;

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
  StoreStatus forgetMessages(const std::vector<Digest>& messages) override;
  StoreStatus forgetBefore(std::int64_t time, std::size_t& dropped) override;

  StoreStatus addObject(const ObjectRecord& object, const ChangeNote& note,
                        std::uint32_t& id) override;
  StoreStatus changeObject(const ObjectRecord& object, const ChangeNote& note) override;
  StoreStatus removeObject(std::uint32_t id, std::uint32_t owner, const ChangeNote& note) override;
  StoreStatus findObject(std::uint32_t id, ObjectRecord& object) override;
  StoreStatus findObjectNamed(std::uint32_t owner, std::uint32_t type, const std::string& name,
                              std::uint32_t& id) override;
  StoreStatus listObjects(const ObjectPage& page, std::vector<ObjectRecord>& objects) override;
  StoreStatus listReferrers(std::uint32_t id, std::vector<RuleName>& rules) override;

  StoreStatus readPolicy(PolicyRecord& policy) override;
  StoreStatus listRules(const RulePage& page, PolicyRecord& part) override;
  StoreStatus findRule(std::uint32_t id, PolicyRecord& part) override;
  StoreStatus replacePolicy(const PolicyRecord& policy, const ChangeNote& note,
                            std::int64_t& revision) override;
  StoreStatus readRevision(std::int64_t& revision) override;
  StoreStatus listAudit(std::int64_t afterRow, std::size_t limit,
                        std::vector<AuditRecord>& records) override;
  StoreStatus check(std::vector<std::string>& faults) override;

 private:
  enum class Access {
    Single,    ///< one statement that reads
    Snapshot,  ///< several that read the same state
    Write,     ///< a transaction, committed behind the work
    Look,      ///< one statement that reads, on a store of whatever form; none without a store
  };
  using Work = std::function<void(Connection&)>;

  StoreStatus run(const char* doing, Access access, const Work& work);
  void runOn(Connection& connection, Access access, const Work& work);
  void writeInTurn(Connection& connection, const Work& work);

  void tell(StoreError error) const;

  std::unique_ptr<ConnectionPool> pool_;
  StoreObserver* observer_ = nullptr;
  std::mutex writing_;                       ///< where the database takes one writer at a time
  std::atomic<unsigned int> lockedOut_ = 0;  ///< writers whose patience another program outlasted
};

}  // namespace host::store
