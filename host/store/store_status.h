// How an operation on the store ended.
#pragma once

#include <string>

#include "library/platform/api.h"

namespace host::store {

/// Why the store could not do it, as far as the caller can do something about it.
enum class StoreError {
  None = 0,
  InvalidArgument,  ///< a value that cannot be kept
  NotFound,         ///< there is no such row
  Conflict,         ///< somebody else got there first
  InUse,            ///< a rule refers to it
  NameTaken,        ///< another one has the name
  Unavailable,      ///< it cannot be opened or reached
  Busy,             ///< others kept it locked for longer than the busy timeout
  Full,             ///< no space left
  ReadOnly,         ///< it may be read, not written
  Permission,       ///< this user may not
  Damaged,          ///< it is not what was written, or no store at all
  TooNew,           ///< it was written by a newer version of this software
  InputOutput,      ///< the device failed
  OutOfMemory,
  Internal,  ///< a fault of the program
};

/// What a store does when it is missing, or has an older form than this program's.
enum class Upkeep {
  MakeAndMigrate,  ///< makes it, or brings it forward
  /// Every operation fails as Unavailable. An empty store that nobody asked for would look like a
  /// policy without rules.
  Refuse,
};

/// A short text in English; never null.
KAVI_API const char* storeErrorText(StoreError error);

/// The result of an operation: its error and, when there is one, a sentence for people that says
/// what failed, where, and what helps.
struct [[nodiscard]] StoreStatus {
  StoreError error = StoreError::None;
  std::string text;
  bool isUncertain = false;  ///< the change may have been made all the same

  bool ok() const { return error == StoreError::None; }
};

}  // namespace host::store
