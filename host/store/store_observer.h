// Who hears of the store's failures.
#pragma once

#include "host/store/store_status.h"

namespace host::store {

/// Called on the thread of the operation that failed, and so from any. Must return soon.
class StoreObserver {
 public:
  virtual ~StoreObserver() = default;

  /// An operation failed for \p error: a fault of the store, its disk, its server or the program.
  /// Answers such as NotFound or Conflict are none.
  virtual void storeFailed(StoreError error) noexcept = 0;
};

}  // namespace host::store
