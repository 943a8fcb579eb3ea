// Where exceptions stop in this folder.
#pragma once

#include <new>
#include <utility>

#include "host/delivery/adapter_error.h"

namespace host::delivery {

/// Runs \p body, which answers an AdapterError; an exception becomes OutOfMemory or Internal.
template <class Body>
AdapterError guardedOutcome(Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (const std::bad_alloc&) {
    return AdapterError::OutOfMemory;
  } catch (...) {
    return AdapterError::Internal;
  }
}

}  // namespace host::delivery
