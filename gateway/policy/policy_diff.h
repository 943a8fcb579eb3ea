// What differs between two states of a store's policy, as an administrator sees it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/policy/node.h"
#include "host/store/policy_store.h"

namespace gateway::policy {

/// One rule or named object that differs.
struct PolicyChange {
  enum class Kind { Added, Removed, Changed };

  Kind kind = Kind::Changed;
  std::string_view word;  ///< "rule", "stamp", ...
  unsigned int id = 0;
  std::string name;              ///< as it is to be; of a removed one as it was
  bool moved = false;            ///< a rule that runs at another place among the others
  const Node* before = nullptr;  ///< the entry of a policy file; null when there was none
  const Node* after = nullptr;   ///< null when there is none any more
};

/// The changes that lead from one state to the other: objects by kind, then rules in the order in
/// which they run, removed ones first.
class PolicyDiff {
 public:
  PolicyDiff(const host::store::PolicyRecord& from, const host::store::PolicyRecord& to);

  const std::vector<PolicyChange>& changes() const { return changes_; }
  std::size_t count(PolicyChange::Kind kind) const;

 private:
  void compareObjects(const host::store::PolicyRecord& from, const host::store::PolicyRecord& to);
  void compareRules(const host::store::PolicyRecord& from, const host::store::PolicyRecord& to);

  Document document_;  ///< owns the entries
  std::vector<PolicyChange> changes_;
};

}  // namespace gateway::policy
