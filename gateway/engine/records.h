// The named-object records of one message's run.
#pragma once

#include <memory>
#include <vector>

#include "gateway/policy/snapshot.h"
#include "library/platform/kavi_named_obj.h"
#include "library/platform/named_obj_mgr.h"

namespace gateway::engine {

/// Copies of the records that actions refer to, for one message: an action may change a record, and
/// no other message must see that. Each is built once, when a rule that needs it has matched.
class Records {
 public:
  explicit Records(const policy::Snapshot& policy) : policy_(policy) {}

  /// Makes sure that the records of \p rule are there.
  void addFor(const policy::Snapshot::Rule& rule);
  const NamedObjMgrForScanner& manager() const { return manager_; }

 private:
  const policy::Snapshot& policy_;
  std::vector<std::unique_ptr<KaviNamedObj>> records_;
  NamedObjMgrForScanner manager_;
};

}  // namespace gateway::engine
