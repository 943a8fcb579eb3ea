// The store behind the platform's named-object operations.
#pragma once

#include <cstdint>
#include <memory>

#include "host/store/store.h"
#include "library/platform/api.h"

namespace host::store {

/// Makes \p store the one that every Kavi::RdbmsInterface opened from now on works on; null takes
/// it away again. Those that are open keep theirs. Safe from any thread.
/// \param actor  who makes the changes, for the audit list
KAVI_API void configureStore(std::shared_ptr<PolicyStore> store, std::string actor);

/// How this thread's last operation of KaviNamedObj on a store ended. The operations themselves
/// answer a number only; this is for whoever has to tell a person why.
KAVI_API StoreStatus lastObjectOperation();

/// While it lives, changes that this thread makes through KaviNamedObj are made only when the store
/// still has that revision; else lastObjectOperation() says Conflict.
class KAVI_API ExpectedRevision {
 public:
  explicit ExpectedRevision(std::int64_t revision);
  ~ExpectedRevision();
  ExpectedRevision(const ExpectedRevision&) = delete;
  ExpectedRevision& operator=(const ExpectedRevision&) = delete;
};

}  // namespace host::store
