#include "tests/fakes/store.h"

#include <algorithm>
#include <limits>

#include "tests/fakes/fault_plan.h"

namespace fakes {

using host::store::Digest;
using host::store::EffectAnswer;
using host::store::EffectClaim;
using host::store::EffectState;
using host::store::IndexPage;
using host::store::IndexPath;
using host::store::StoreError;

namespace {

MemoryStore::Status failed(StoreError error) { return {error, "the store in memory says no"}; }

bool canBeKept(const MemoryStore::Entry& entry) {
  return !entry.path.empty() &&
         entry.size <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
}

std::int64_t expiryOf(const MemoryStore::Entry& entry) {
  return entry.storedAt + std::int64_t{86'400} * entry.agingDays.value_or(0);
}

}  // namespace

template <class Work>
MemoryStore::Status MemoryStore::run(Work work) {
  if (platformCallFails()) return failed(StoreError::Unavailable);
  const std::lock_guard lock(mutex_);
  const StoreError error = work();
  return error == StoreError::None ? Status{} : failed(error);
}

std::map<std::int64_t, MemoryStore::Entry>::iterator MemoryStore::atPath(const std::string& path) {
  return std::find_if(rows_.begin(), rows_.end(),
                      [&](const auto& row) { return row.second.path == path; });
}

MemoryStore::Effect* MemoryStore::held(const Key& key, const std::string& owner) {
  const auto effect = effects_.find(key.effect);
  const bool holds =
      effect != effects_.end() && !effect->second.done && effect->second.claim.owner == owner;
  return holds ? &effect->second : nullptr;
}

MemoryStore::Status MemoryStore::prepare() {
  return run([] { return StoreError::None; });
}

MemoryStore::Status MemoryStore::addEntry(const Entry& entry, const Finishes* finishes,
                                          std::int64_t& row) {
  return run([&] {
    if (!canBeKept(entry)) return StoreError::InvalidArgument;
    Effect* effect = finishes != nullptr ? held(finishes->key, finishes->owner) : nullptr;
    if (finishes != nullptr && effect == nullptr) return StoreError::Conflict;
    const auto present = atPath(entry.path);
    row = present != rows_.end() ? present->first : ++lastRow_;
    Entry& kept = rows_[row] = entry;
    kept.row = row;
    if (effect != nullptr) {
      effect->done = true;
      effect->result = finishes->result;
    }
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::addMissing(const Entry& entry, bool& added) {
  return run([&] {
    if (!canBeKept(entry)) return StoreError::InvalidArgument;
    added = atPath(entry.path) == rows_.end();
    if (added) {
      rows_[++lastRow_] = entry;
      rows_[lastRow_].row = lastRow_;
    }
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::removeEntry(std::int64_t row) {
  return run([&] { return rows_.erase(row) != 0 ? StoreError::None : StoreError::NotFound; });
}

MemoryStore::Status MemoryStore::removePath(const std::string& path) {
  return run([&] {
    const auto row = atPath(path);
    if (row == rows_.end()) return StoreError::NotFound;
    rows_.erase(row);
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::findEntry(std::int64_t row, Entry& entry) {
  return run([&] {
    const auto found = rows_.find(row);
    if (found == rows_.end()) return StoreError::NotFound;
    entry = found->second;
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::findPath(const std::string& path, Entry& entry) {
  return run([&] {
    const auto found = atPath(path);
    if (found == rows_.end()) return StoreError::NotFound;
    entry = found->second;
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::findMessage(const std::string& messageId,
                                             std::vector<Entry>& entries) {
  return run([&] {
    entries.clear();
    for (const auto& [row, entry] : rows_) {
      if (entry.messageId == messageId) entries.push_back(entry);
    }
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::list(const IndexPage& page, std::vector<Entry>& entries) {
  return run([&] {
    entries.clear();
    for (auto row = rows_.upper_bound(page.afterRow); row != rows_.end(); ++row) {
      if (entries.size() == page.limit) break;
      const Entry& entry = row->second;
      if (page.kind.value_or(entry.kind) != entry.kind) continue;
      if (page.area && *page.area != entry.area) continue;
      entries.push_back(entry);
    }
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::listExpired(std::int64_t now, std::size_t limit,
                                             std::vector<Entry>& entries) {
  return run([&] {
    entries.clear();
    for (const auto& [row, entry] : rows_) {
      if (entry.agingDays && expiryOf(entry) <= now) entries.push_back(entry);
    }
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& left, const Entry& right) {
      return expiryOf(left) < expiryOf(right);
    });
    if (entries.size() > limit) entries.resize(limit);
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::listPaths(const std::string& prefix, const std::string& after,
                                           std::size_t limit, std::vector<IndexPath>& paths) {
  return run([&] {
    if (prefix.find_first_not_of('\xFF') == std::string::npos) return StoreError::InvalidArgument;
    paths.clear();
    for (const auto& [row, entry] : rows_) {
      if (entry.path.starts_with(prefix) && entry.path > after) paths.push_back({row, entry.path});
    }
    std::sort(paths.begin(), paths.end(),
              [](const IndexPath& left, const IndexPath& right) { return left.path < right.path; });
    if (paths.size() > limit) paths.resize(limit);
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::beginEffect(const Key& key, const EffectClaim& claim,
                                             EffectAnswer& answer) {
  return run([&] {
    const auto [place, fresh] = effects_.try_emplace(key.effect, Effect{key.message, claim});
    Effect& effect = place->second;
    if (fresh) {
      answer = {};
    } else if (effect.done) {
      answer = {EffectState::Finished, effect.result};
    } else if (effect.claim.now + effect.claim.leaseSeconds > claim.now) {
      answer = {EffectState::UnderWay, {}};
    } else {
      answer = {EffectState::TakenOver, effect.claim.intended};
      effect.claim = claim;
    }
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::finishEffect(const Key& key, const std::string& owner,
                                              const std::string& result) {
  return run([&] {
    Effect* effect = held(key, owner);
    if (effect == nullptr) return StoreError::Conflict;
    effect->done = true;
    effect->result = result;
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::abandonEffect(const Key& key, const std::string& owner) {
  return run([&] {
    if (held(key, owner) != nullptr) effects_.erase(key.effect);
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::reopenEffect(const Key& key, const std::string& result) {
  return run([&] {
    const auto effect = effects_.find(key.effect);
    if (effect != effects_.end() && effect->second.done && effect->second.result == result) {
      effects_.erase(effect);
    }
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::forgetMessages(const std::vector<Digest>& messages) {
  return run([&] {
    std::erase_if(effects_, [&](const auto& effect) {
      return std::find(messages.begin(), messages.end(), effect.second.message) != messages.end();
    });
    return StoreError::None;
  });
}

MemoryStore::Status MemoryStore::forgetBefore(std::int64_t time, std::size_t& dropped) {
  return run([&] {
    dropped = std::erase_if(effects_, [&](const auto& e) { return e.second.claim.now < time; });
    return StoreError::None;
  });
}

}  // namespace fakes
