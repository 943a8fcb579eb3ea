// The policy in force, from the store that holds it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "gateway/policy/diagnostics.h"
#include "gateway/policy/rows.h"
#include "gateway/policy/snapshot.h"
#include "host/store/policy_store.h"

namespace gateway::policy {

/// A policy as it stood in a store at one moment, ready to run.
struct StoredPolicy {
  std::int64_t revision = 0;                 ///< of the store
  PolicyRows rows{};                         ///< with the store's ids
  std::shared_ptr<const Snapshot> snapshot;  ///< null when the policy cannot be used
  host::store::StoreStatus status{};         ///< whether the store could be read at all

  explicit operator bool() const { return snapshot != nullptr; }
};

/// Reads the policy that \p store holds and compiles it.
/// \param lines  where its rules and objects came from, for messages
/// \return a policy without a snapshot when the store cannot be read or holds what cannot be used;
///   every fault is in \p diagnostics.
StoredPolicy loadFromStore(host::store::PolicyStore& store, Diagnostics& diagnostics,
                           const SourceLines& lines = {});

/// The same for the policy file at \p path, by way of an empty store in memory.
StoredPolicy loadFromFile(const std::string& path, Diagnostics& diagnostics);

}  // namespace gateway::policy
