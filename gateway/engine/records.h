// The named-object records of one message's run.
#pragma once

#include <map>
#include <memory>

#include "gateway/policy/snapshot.h"
#include "library/platform/kavi_named_obj.h"
#include "library/platform/named_obj_mgr.h"

namespace gateway::engine {

/// Copies of the records that actions refer to, for one message: an action may change a record, and
/// neither another message nor another action must see that.
class Records {
 public:
  explicit Records(const policy::Snapshot& policy) : policy_(policy) {}

  /// Makes sure that the records of \p rule are there.
  void addFor(const policy::Snapshot::Rule& rule);
  /// Puts new copies in the place of the records of \p action, which are gone then.
  void renewFor(const policy::Snapshot::Action& action);
  const NamedObjMgrForScanner& manager() const { return manager_; }

 private:
  void add(unsigned int id);

  const policy::Snapshot& policy_;
  std::map<unsigned int, std::unique_ptr<KaviNamedObj>> records_;
  NamedObjMgrForScanner manager_;
};

}  // namespace gateway::engine
