#include "gateway/policy/stored_policy.h"

#include <utility>

#include "gateway/policy/loader.h"
#include "gateway/policy/policy_records.h"
#include "host/store/store.h"

namespace gateway::policy {
namespace {

using host::store::PolicyRecord;
using host::store::StoreStatus;

/// \return false, with the reason in \p diagnostics, when \p status is a failure.
bool succeeded(const StoreStatus& status, Diagnostics& diagnostics) {
  if (!status.ok()) diagnostics.error(0, "", status.text);
  return status.ok();
}

}  // namespace

StoredPolicy loadFromStore(host::store::PolicyStore& store, Diagnostics& diagnostics,
                           const SourceLines& lines) {
  PolicyRecord record;
  StoredPolicy policy;
  policy.status = store.readPolicy(record);
  if (!succeeded(policy.status, diagnostics)) return policy;
  policy.revision = record.revision;
  policy.rows = rowsOf(record);
  policy.snapshot = Snapshot::build(policy.rows, diagnostics, lines);
  return policy;
}

StoredPolicy loadFromFile(const std::string& path, Diagnostics& diagnostics) {
  const auto loaded = loadPolicyFile(path, diagnostics);
  if (!loaded) return {};
  // In an empty store the ids and the sequence are those of the file, and so are the lines.
  const std::unique_ptr<host::store::Database> store = host::store::makeMemoryStore();
  PolicyRecord record;
  std::int64_t revision = 0;
  if (!recordOf(loaded->rows, {}, record, diagnostics) ||
      !succeeded(store->replacePolicy(record, {}, revision), diagnostics)) {
    return {};
  }
  return loadFromStore(*store, diagnostics, loaded->lines);
}

}  // namespace gateway::policy
