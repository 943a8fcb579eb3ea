// Making the n-th platform call or the n-th allocation fail.
#pragma once

#include <stdexcept>

namespace fakes {

enum class FaultKind {
  None,
  Allocation,       ///< the n-th operator new throws std::bad_alloc
  PlatformFailure,  ///< the n-th platform call answers its failure result
  PlatformThrow,    ///< the n-th platform call throws PlatformFault
};

const char* faultName(FaultKind kind);

/// What a platform call throws when it was told to.
class PlatformFault : public std::runtime_error {
 public:
  PlatformFault() : std::runtime_error("platform fault") {}
};

/// Arms one fault for the present thread, for as long as it lives. Plans do not nest.
class FaultPlan {
 public:
  /// \param call  which call is to fail, counted from 1.
  FaultPlan(FaultKind kind, unsigned int call);
  ~FaultPlan();
  FaultPlan(const FaultPlan&) = delete;
  FaultPlan& operator=(const FaultPlan&) = delete;

  /// Whether there were enough calls for the fault to happen.
  bool fired() const;
};

/// While it lives, allocations of the present thread are neither counted nor failed: for what a
/// fake writes down about a call.
class Unswept {
 public:
  Unswept();
  ~Unswept();
  Unswept(const Unswept&) = delete;
  Unswept& operator=(const Unswept&) = delete;
};

/// To be called first in every fake platform operation. Counts the call.
/// \return whether this call is to answer its failure result.
/// \throw PlatformFault when it is to throw.
bool platformCallFails();

/// To be called by operator new of the test program. \return whether this allocation is to fail.
bool allocationFails();

}  // namespace fakes
