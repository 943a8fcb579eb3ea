// The one place where exceptions stop.
#pragma once

#include <utility>

namespace host::core {

/// Runs \p body and answers what it answers; any exception (allocation failures included) becomes
/// \p failure. Every operation of the platform that may not throw runs inside one.
template <class Result, class Body>
Result guarded(Result failure, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    return failure;
  }
}

/// The same for an operation without a result: what it did not do stays undone.
template <class Body>
void guardedVoid(Body&& body) noexcept {
  try {
    std::forward<Body>(body)();
  } catch (...) {
    return;
  }
}

}  // namespace host::core
