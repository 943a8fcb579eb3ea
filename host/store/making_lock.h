// One at a time makes a store in a file, or brings it forward.
#pragma once

#include <string>

#include "host/core/folder.h"

namespace host::store {

/// What the name of the lock's file ends with, behind that of the store.
inline constexpr char kLockEnd[] = "-kavi-lock";

/// The lock on a file beside the store, of mode 0600, so that nobody but its users can keep it; the
/// folder itself could be locked by everybody who may list it. The file goes with the lock. Between
/// processes, and between objects of one.
class MakingLock {
 public:
  /// \param folder  of the store; outlives this object \param store  its name there
  /// \throw StoreFailure Busy when others keep it for longer than \p patienceMs
  MakingLock(const core::Folder& folder, const std::string& store, int patienceMs);
  ~MakingLock();
  MakingLock(const MakingLock&) = delete;
  MakingLock& operator=(const MakingLock&) = delete;

 private:
  bool tryOnce(const std::string& store);

  const core::Folder& folder_;
  std::string name_;
  core::Descriptor file_;
};

}  // namespace host::store
