#include "host/store/file_failure.h"

namespace host::store {

namespace {

StoreError storeErrorOf(core::FileError error) {
  switch (error) {
    case core::FileError::DiskFull:
      return StoreError::Full;
    case core::FileError::ReadOnly:
      return StoreError::ReadOnly;
    case core::FileError::Permission:
      return StoreError::Permission;
    case core::FileError::InputOutput:
      return StoreError::InputOutput;
    default:
      return StoreError::Unavailable;
  }
}

}  // namespace

StoreFailure fileFailure(core::FileError error, const std::string& what) {
  const std::string text = core::fileErrorText(error);
  return {storeErrorOf(error), what.empty() ? text : what + ": " + text};
}

StoreFailure fileFailure(int errnoValue, const std::string& what) {
  return fileFailure(core::fileErrorOf(errnoValue), what);
}

}  // namespace host::store
