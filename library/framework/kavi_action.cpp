#include "library/framework/kavi_action.h"

#include <algorithm>
#include <climits>

#include "library/framework/guard.h"

KaviAction::~KaviAction() = default;

void KaviAction::fillInTokenMap(Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                                const NamedObjMgrForScanner& /*namedObjects*/) {}

bool KaviAction::hasNamedObjects() { return false; }

bool KaviAction::getNamedObjectIds(const std::string& setting, std::vector<unsigned int>& ids) {
  return library::guarded("KaviAction::getNamedObjectIds", false, [&] {
    const std::size_t length = std::min<std::size_t>(setting.size(), INT_MAX);
    return getNamedObjectIds(setting.c_str(), static_cast<int>(length), ids);
  });
}

bool KaviAction::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                   std::vector<unsigned int>& /*ids*/) {
  return false;
}
