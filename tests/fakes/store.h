// The store in memory.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host/store/store.h"

namespace fakes {

/// A Store without a disk. Each operation counts as a platform call of the fault plan; one that is
/// to fail changes nothing.
class MemoryStore final : public host::store::Store {
 public:
  using Status = host::store::StoreStatus;
  using Entry = host::store::IndexEntry;
  using Key = host::store::EffectKey;

  Status prepare() override;
  Status addEntry(const Entry& entry, const Finishes* finishes, std::int64_t& row) override;
  Status addMissing(const Entry& entry, bool& added) override;
  Status removeEntry(std::int64_t row) override;
  Status removePath(const std::string& path) override;
  Status findEntry(std::int64_t row, Entry& entry) override;
  Status findPath(const std::string& path, Entry& entry) override;
  Status findMessage(const std::string& messageId, std::vector<Entry>& entries) override;
  Status list(const host::store::IndexPage& page, std::vector<Entry>& entries) override;
  Status listExpired(std::int64_t now, std::size_t limit, std::vector<Entry>& entries) override;
  Status listPaths(const std::string& prefix, const std::string& after, std::size_t limit,
                   std::vector<host::store::IndexPath>& paths) override;

  Status beginEffect(const Key& key, const host::store::EffectClaim& claim,
                     host::store::EffectAnswer& answer) override;
  Status finishEffect(const Key& key, const std::string& owner, const std::string& result) override;
  Status abandonEffect(const Key& key, const std::string& owner) override;
  Status reopenEffect(const Key& key, const std::string& result) override;
  Status forgetMessages(const std::vector<host::store::Digest>& messages) override;
  Status forgetBefore(std::int64_t time, std::size_t& dropped) override;

  std::size_t rowCount() const { return rows_.size(); }
  std::size_t effectCount() const { return effects_.size(); }

 private:
  struct Effect {
    host::store::Digest message;
    host::store::EffectClaim claim;
    bool done = false;
    std::string result = {};
  };

  template <class Work>
  Status run(Work work);
  Effect* held(const Key& key, const std::string& owner);
  std::map<std::int64_t, Entry>::iterator atPath(const std::string& path);

  std::mutex mutex_;
  std::map<std::int64_t, Entry> rows_;
  std::map<host::store::Digest, Effect> effects_;
  std::int64_t lastRow_ = 0;
};

}  // namespace fakes
