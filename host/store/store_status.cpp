#include "host/store/store_status.h"

namespace host::store {

const char* storeErrorText(StoreError error) {
  switch (error) {
    case StoreError::None:
      return "no error";
    case StoreError::InvalidArgument:
      return "the value cannot be stored";
    case StoreError::NotFound:
      return "no such row";
    case StoreError::Conflict:
      return "somebody else changed it first";
    case StoreError::InUse:
      return "a rule refers to it";
    case StoreError::NameTaken:
      return "another one has this name";
    case StoreError::Unavailable:
      return "the store cannot be opened";
    case StoreError::Busy:
      return "the store was locked by others for too long";
    case StoreError::Full:
      return "no space left for the store";
    case StoreError::ReadOnly:
      return "the store is read-only";
    case StoreError::Permission:
      return "no permission to use the store";
    case StoreError::Damaged:
      return "the store is damaged, or no store";
    case StoreError::TooNew:
      return "the store was written by a newer version";
    case StoreError::InputOutput:
      return "input/output error in the store";
    case StoreError::OutOfMemory:
      return "out of memory";
    case StoreError::Internal:
      break;
  }
  return "internal error of the store";
}

}  // namespace host::store
