// The fence around every public operation.
#pragma once

#include <utility>

namespace library {

/// Logs the exception that is being handled, at level 1, as the reason why \p operation failed. To
/// be called from a catch block only.
void reportException(const char* operation) noexcept;

/// Runs \p body and answers its result, or \p failure when it throws: the host may be written in
/// C, and no caller expects an exception.
/// \param operation  name for the log, "Class::operation"
template <class Result, class Body>
Result guarded(const char* operation, Result failure, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    reportException(operation);
  }
  return failure;
}

}  // namespace library
