// Failures of file operations as failures of a store.
#pragma once

#include <string>

#include "host/core/file_error.h"
#include "host/store/store_failure.h"

namespace host::store {

/// \param what  whatever it happened to, when that is not the store itself; may be empty
StoreFailure fileFailure(core::FileError error, const std::string& what = {});
StoreFailure fileFailure(int errnoValue, const std::string& what = {});

}  // namespace host::store
