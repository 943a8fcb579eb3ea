// What has to change for one policy to become another.
#pragma once

#include <vector>

#include "host/store/policy_store.h"

namespace host::store {

/// Pointers into the two policies, which outlive this.
struct PolicyDifference {
  std::vector<const ObjectRecord*> addedObjects;    ///< by id
  std::vector<const ObjectRecord*> changedObjects;  ///< as they are to be
  std::vector<const ObjectRecord*> renamedObjects;  ///< as they are; of the changed ones
  std::vector<const ObjectRecord*> removedObjects;  ///< as they are
  std::vector<const RuleRecord*> writtenRules;      ///< new or changed, as they are to be
  std::vector<const RuleRecord*> replacedRules;     ///< as they are; of the written ones
  std::vector<const RuleRecord*> removedRules;      ///< as they are

  bool isNone() const;
};

/// \param from  as it stands in the store
/// \throw StoreFailure InvalidArgument, NameTaken when \p to is no policy that can follow \p from
PolicyDifference differenceOf(const PolicyRecord& from, const PolicyRecord& to);

}  // namespace host::store
