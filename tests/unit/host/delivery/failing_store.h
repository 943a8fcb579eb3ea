// A store whose operations fail where a test wants.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/store/store.h"
#include "tests/fakes/fault_plan.h"
#include "tests/fakes/store.h"

namespace testing_host {

/// A store in memory, but for the call that is to fail. Counts from 1. Its own allocations are not
/// swept.
class FailingStore final : public host::store::Store {
 public:
  using Status = host::store::StoreStatus;
  using Entry = host::store::IndexEntry;
  using Key = host::store::EffectKey;

  enum class Moment {
    Before,  ///< nothing is done
    Behind,  ///< it is done, and the answer is lost
  };

  /// Lets the \p call -th call fail; 0 lets all succeed.
  void failCall(unsigned int call, Moment moment = Moment::Before) {
    failingCall_ = call;
    moment_ = moment;
    calls_.clear();
  }
  /// Lets every call fail from now on.
  void failAll(host::store::StoreError error) {
    down_ = true;
    error_ = error;
  }
  void recover() { down_ = false; }
  bool fired() const { return failingCall_ != 0 && calls_.size() >= failingCall_; }
  const std::vector<std::string>& calls() const { return calls_; }
  fakes::MemoryStore& memory() { return memory_; }

  Status prepare() override {
    return run("prepare", [&] { return memory_.prepare(); });
  }
  Status addEntry(const Entry& entry, const Finishes* finishes, std::int64_t& row) override {
    return run("addEntry", [&] { return memory_.addEntry(entry, finishes, row); });
  }
  Status addMissing(const Entry& entry, bool& added) override {
    return run("addMissing", [&] { return memory_.addMissing(entry, added); });
  }
  Status removeEntry(std::int64_t row) override {
    return run("removeEntry", [&] { return memory_.removeEntry(row); });
  }
  Status removePath(const std::string& path) override {
    return run("removePath", [&] { return memory_.removePath(path); });
  }
  Status findEntry(std::int64_t row, Entry& entry) override {
    return run("findEntry", [&] { return memory_.findEntry(row, entry); });
  }
  Status findPath(const std::string& path, Entry& entry) override {
    return run("findPath", [&] { return memory_.findPath(path, entry); });
  }
  Status findMessage(const std::string& id, std::vector<Entry>& entries) override {
    return run("findMessage", [&] { return memory_.findMessage(id, entries); });
  }
  Status list(const host::store::IndexPage& page, std::vector<Entry>& entries) override {
    return run("list", [&] { return memory_.list(page, entries); });
  }
  Status listExpired(std::int64_t now, std::size_t limit, std::vector<Entry>& entries) override {
    return run("listExpired", [&] { return memory_.listExpired(now, limit, entries); });
  }
  Status listPaths(const std::string& prefix, const std::string& after, std::size_t limit,
                   std::vector<host::store::IndexPath>& paths) override {
    return run("listPaths", [&] { return memory_.listPaths(prefix, after, limit, paths); });
  }
  Status beginEffect(const Key& key, const host::store::EffectClaim& claim,
                     host::store::EffectAnswer& answer) override {
    return run("beginEffect", [&] { return memory_.beginEffect(key, claim, answer); });
  }
  Status finishEffect(const Key& key, const std::string& owner,
                      const std::string& result) override {
    return run("finishEffect", [&] { return memory_.finishEffect(key, owner, result); });
  }
  Status abandonEffect(const Key& key, const std::string& owner) override {
    return run("abandonEffect", [&] { return memory_.abandonEffect(key, owner); });
  }
  Status reopenEffect(const Key& key, const std::string& result) override {
    return run("reopenEffect", [&] { return memory_.reopenEffect(key, result); });
  }
  Status forgetMessages(const std::vector<host::store::Digest>& messages) override {
    return run("forgetMessages", [&] { return memory_.forgetMessages(messages); });
  }
  Status forgetBefore(std::int64_t time, std::size_t& dropped) override {
    return run("forgetBefore", [&] { return memory_.forgetBefore(time, dropped); });
  }

 private:
  template <class Work>
  Status run(const char* name, Work work) {
    const fakes::Unswept unswept;
    calls_.emplace_back(name);
    const Status failure{error_, "the index is told to fail"};
    if (down_) return failure;
    if (calls_.size() != failingCall_) return work();
    if (moment_ == Moment::Behind) {
      const Status ignored = work();
      static_cast<void>(ignored);
    }
    return failure;
  }

  fakes::MemoryStore memory_;
  unsigned int failingCall_ = 0;
  Moment moment_ = Moment::Before;
  bool down_ = false;
  host::store::StoreError error_ = host::store::StoreError::Unavailable;
  std::vector<std::string> calls_;
};

}  // namespace testing_host
