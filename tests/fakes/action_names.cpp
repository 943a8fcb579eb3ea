// The two operations of KaviAction that the host defines.
#include "library/framework/kavi_action.h"
#include "tests/fakes/fault_plan.h"

const char* KaviAction::getActionName(ActionType type) {
  fakes::platformCallFails();  // has no failure result: may only throw
  switch (type) {
    case Archive:
      return "ArchiveName";
    case Quarantine:
      return "QuarantineName";
    case Stamp:
      return "StampName";
    case Notify:
      return "NotifyName";
    default:
      return "OtherName";
  }
}

bool KaviAction::CreateActionTokenString(const char* raw, std::string& out) {
  if (fakes::platformCallFails()) {
    return false;
  }
  out = std::string("<") + raw + ">";
  return true;
}
