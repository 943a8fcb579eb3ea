#include "library/actions/disposition/postpone.h"

#include "library/framework/blob_settings.h"
#include "library/framework/guard.h"
#include "library/platform/is_adapter.h"
#include "library/tokens/action_utils.h"

namespace {

constexpr unsigned char kEndHour = 23;
constexpr unsigned char kEndMinute = 59;

}  // namespace

bool ActPostpone::init(Kavi::GlobalSetting& /*settings*/, Kavi::LogMsg& /*log*/) { return true; }

bool ActPostpone::construct(const char* setting, unsigned int length) {
  return library::guarded("ActPostpone::construct", false, [&] {
    uiPostpone settings;
    if (!settings.construct(setting, length)) {
      return false;
    }
    hour = settings.hour;
    min = settings.min;
    return true;
  });
}

std::string ActPostpone::serialize() {
  return library::guarded("ActPostpone::serialize", std::string(), [&] {
    uiPostpone settings;
    settings.hour = hour;
    settings.min = min;
    return settings.serialize();
  });
}

bool ActPostpone::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* /*original*/,
                             bool& flag, Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                             OvIsAdapter& adapter, const NamedObjMgrForScanner& /*namedObjects*/) {
  return library::guarded("ActPostpone::takeAction", false, [&] {
    // Before anything can fail: callers rely on the flag even when the postponement fails.
    flag = true;
    unsigned int error = 0;
    adapter.postponeMessage(error, msg, static_cast<unsigned char>(hour),
                            static_cast<unsigned char>(min), kEndHour, kEndMinute);
    if (error != 0) {
      ActionUtils::L1("Failed to postpone a message, error %u.", error);
      return false;
    }
    return true;
  });
}

KaviAction::ActionType ActPostpone::getType() const { return Postpone; }

bool ActPostpone::requiresOriginalMsg() { return false; }

bool ActPostpone::hasNamedObjects() { return false; }

bool ActPostpone::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                    std::vector<unsigned int>& /*ids*/) {
  return true;
}

bool uiPostpone::construct(const char* setting, unsigned int /*length*/) {
  return library::guarded("uiPostpone::construct", false, [&] {
    return library::constructFromBlob(setting, library::BlobField{"hour", hour},
                                      library::BlobField{"min", min});
  });
}

std::string uiPostpone::serialize() {
  return library::guarded("uiPostpone::serialize", std::string(), [&] {
    return library::serializeToBlob(library::BlobField{"hour", hour},
                                    library::BlobField{"min", min});
  });
}

bool uiPostpone::takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/,
                            bool& /*flag*/, Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                            OvIsAdapter& /*adapter*/,
                            const NamedObjMgrForScanner& /*namedObjects*/) {
  return false;
}

KaviAction::ActionType uiPostpone::getType() const { return Postpone; }

bool uiPostpone::requiresOriginalMsg() { return false; }

bool uiPostpone::hasNamedObjects() { return false; }

bool uiPostpone::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                   std::vector<unsigned int>& /*ids*/) {
  return true;
}
