#include "tests/fakes/fault_plan.h"

namespace fakes {
namespace {

struct State {
  FaultKind kind = FaultKind::None;
  unsigned int callsLeft = 0;
  bool fired = false;
  unsigned int unswept = 0;
};

thread_local State state;

// Counts one call of a swept kind; true when it is the one to fail.
bool isTheCall() {
  if (state.callsLeft == 0 || --state.callsLeft > 0) {
    return false;
  }
  state.fired = true;
  return true;
}

}  // namespace

const char* faultName(FaultKind kind) {
  switch (kind) {
    case FaultKind::None:
      return "none";
    case FaultKind::Allocation:
      return "allocation";
    case FaultKind::PlatformFailure:
      return "platform failure";
    case FaultKind::PlatformThrow:
      return "platform throw";
  }
  return "?";
}

FaultPlan::FaultPlan(FaultKind kind, unsigned int call) {
  state.fired = false;
  state.callsLeft = call;
  state.kind = kind;
}

FaultPlan::~FaultPlan() { state.kind = FaultKind::None; }

bool FaultPlan::fired() const { return state.fired; }

Unswept::Unswept() { ++state.unswept; }
Unswept::~Unswept() { --state.unswept; }

bool platformCallFails() {
  switch (state.kind) {
    case FaultKind::PlatformFailure:
      return isTheCall();
    case FaultKind::PlatformThrow:
      if (isTheCall()) {
        const Unswept unswept;
        throw PlatformFault();
      }
      return false;
    case FaultKind::None:
    case FaultKind::Allocation:
      return false;
  }
  return false;
}

bool allocationFails() {
  return state.kind == FaultKind::Allocation && state.unswept == 0 && isTheCall();
}

}  // namespace fakes
