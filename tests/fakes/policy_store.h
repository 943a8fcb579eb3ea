// Named objects and rules in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/store/policy_store.h"

namespace fakes {

/// A PolicyStore without a disk: one whole policy, and the list of what was done to it.
class MemoryPolicyStore final : public host::store::PolicyStore {
 public:
  using Status = host::store::StoreStatus;
  using Object = host::store::ObjectRecord;
  using Note = host::store::ChangeNote;

  Status addObject(const Object& object, const Note& note, std::uint32_t& id) override;
  Status changeObject(const Object& object, const Note& note) override;
  Status removeObject(std::uint32_t id, std::uint32_t owner, const Note& note) override;
  Status findObject(std::uint32_t id, Object& object) override;
  Status findObjectNamed(std::uint32_t owner, std::uint32_t type, const std::string& name,
                         std::uint32_t& id) override;
  Status listObjects(const host::store::ObjectPage& page, std::vector<Object>& objects) override;
  Status listReferrers(std::uint32_t id, std::vector<host::store::RuleName>& rules) override;
  Status readPolicy(host::store::PolicyRecord& policy) override;
  Status listRules(const host::store::RulePage& page, host::store::PolicyRecord& part) override;
  Status findRule(std::uint32_t id, host::store::PolicyRecord& part) override;
  Status replacePolicy(const host::store::PolicyRecord& policy, const Note& note,
                       std::int64_t& revision) override;
  Status readRevision(std::int64_t& revision) override;
  Status listAudit(std::int64_t afterRow, std::size_t limit,
                   std::vector<host::store::AuditRecord>& records) override;
  Status check(std::vector<std::string>& faults) override;

 private:
  /// Makes \p next the policy if it is one, and writes down what was done.
  Status commit(host::store::PolicyRecord next, const Note& note,
                const std::vector<std::string>& done);
  bool isReferredTo(std::uint32_t id) const;
  /// The policy of \p count of the rules alone, from the one at \p first on.
  host::store::PolicyRecord partOf(std::size_t first, std::size_t count) const;
  bool isOutdated(const host::store::ChangeNote& note) const {
    return note.revision && *note.revision != policy_.revision;
  }

  host::store::PolicyRecord policy_;
  std::vector<host::store::AuditRecord> audit_;
};

}  // namespace fakes
