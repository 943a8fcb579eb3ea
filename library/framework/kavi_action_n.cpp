#include "library/framework/kavi_action_n.h"

#include <algorithm>
#include <climits>

#include "library/framework/guard.h"
#include "library/framework/id_list.h"
#include "library/tokens/action_utils.h"

KaviActionN::KaviActionN(ActionType actionType, bool needsOriginal)
    : type(actionType), requiresOriginal(needsOriginal) {}

KaviActionN::~KaviActionN() = default;

bool KaviActionN::construct(const char* setting, unsigned int length) {
  return library::guarded("KaviActionN::construct", false, [&] {
    const unsigned int readable = std::min<unsigned int>(length, INT_MAX);
    if (getNamedObjectIds(setting, static_cast<int>(readable), ids)) {
      return true;
    }
    ActionUtils::L1("Failed to construct Action %s with setting: '%.32s' (max 32 chars)",
                    getActionName(type), setting != nullptr ? setting : "");
    return false;
  });
}

std::string KaviActionN::serialize() {
  return library::guarded("KaviActionN::serialize", std::string(),
                          [&] { return library::formatIdList(ids); });
}

KaviAction::ActionType KaviActionN::getType() const { return type; }

bool KaviActionN::requiresOriginalMsg() { return requiresOriginal; }

bool KaviActionN::takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/,
                             bool& /*flag*/, Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                             OvIsAdapter& /*adapter*/,
                             const NamedObjMgrForScanner& /*namedObjects*/) {
  return false;
}

bool KaviActionN::hasNamedObjects() { return true; }

bool KaviActionN::getNamedObjectIds(const char* setting, int length,
                                    std::vector<unsigned int>& found) {
  return library::guarded("KaviActionN::getNamedObjectIds", false,
                          [&] { return library::parseIdList(setting, length, found); });
}
