// The fence around every public operation.
//
// What an operation answers when something inside it throws:
//   construct, takeAction, getNamedObjectIds, get... and set...   false
//   serialize                                                     the empty string
//   fillInTokenMap                                                nothing; what was set stays set
//   init of a class                                               false, which nobody judges by
//   ActionUtils::init, InitActionLib                              success: defaults stand in
//   L1, L2, L3                                                    nothing; the line is lost
// Operations that answer a constant (getType, requiresOriginalMsg, hasNamedObjects) cannot fail.
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
