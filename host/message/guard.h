// The wall that no exception passes on its way out of the message library.
#pragma once

#include <new>
#include <utility>

#include "host/core/guard.h"
#include "library/platform/ov_msg_error.h"

namespace host::message {

using core::guarded;

/// The OVMSGERR code that \p operation returns, or the one for what it throws.
template <class Operation>
int guardedCode(Operation&& operation) noexcept {
  try {
    return std::forward<Operation>(operation)();
  } catch (const std::bad_alloc&) {
    return OVMSGERR::OutOfMemory;
  } catch (...) {
    return OVMSGERR::LimitExceeded;  // a text longer than a string can be is all that is left
  }
}

}  // namespace host::message
