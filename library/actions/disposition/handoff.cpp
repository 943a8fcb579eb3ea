#include "library/actions/disposition/handoff.h"

#include "library/framework/blob_settings.h"
#include "library/framework/guard.h"
#include "library/platform/global_setting.h"
#include "library/platform/is_adapter.h"
#include "library/tokens/action_utils.h"

bool ActHandoff::s_removeMessageId = false;

bool ActHandoff::init(Kavi::GlobalSetting& settings, Kavi::LogMsg& /*log*/) {
  return library::guarded("ActHandoff::init", true, [&] {
    int value = 0;
    if (settings.getInt("RemoveKaviMsgID", value, "MessageModule", 0) == 0) {
      s_removeMessageId = value != 0;
    }
    return true;
  });
}

bool ActHandoff::getRemoveMessageIdFlag() { return s_removeMessageId; }

bool ActHandoff::construct(const char* setting, unsigned int length) {
  return library::guarded("ActHandoff::construct", false, [&] {
    uiHandoff settings;
    if (!settings.construct(setting, length)) {
      ActionUtils::L1("Failed to construct Action %s with setting: '%.32s' (max 32 chars)",
                      "Handoff", setting != nullptr ? setting : "");
      return false;
    }
    ip = settings.ip.c_str();
    port = settings.port;
    return true;
  });
}

std::string ActHandoff::serialize() {
  return library::guarded("ActHandoff::serialize", std::string(), [&] {
    uiHandoff settings;
    settings.ip = ip.c_str();
    settings.port = port;
    return settings.serialize();
  });
}

bool ActHandoff::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* /*original*/, bool& flag,
                            Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/, OvIsAdapter& adapter,
                            const NamedObjMgrForScanner& /*namedObjects*/) {
  return library::guarded("ActHandoff::takeAction", false, [&] {
    if (ip.empty() || port == 0) {
      return false;
    }
    // Before anything can fail: callers rely on the flag even when the hand-off fails.
    flag = true;
    unsigned int error = 0;
    if (adapter.handoffMessage(error, msg, ip.c_str(), port) != 0) {
      ActionUtils::L1("Failed to hand off a message. err=0x%08X(%ud),ip='%s',port='%d'", error,
                      error, ip.c_str(), port);
      return false;
    }
    return true;
  });
}

KaviAction::ActionType ActHandoff::getType() const { return Handoff; }

bool ActHandoff::requiresOriginalMsg() { return false; }

bool ActHandoff::hasNamedObjects() { return false; }

bool ActHandoff::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                   std::vector<unsigned int>& /*ids*/) {
  return true;
}

bool uiHandoff::construct(const char* setting, unsigned int /*length*/) {
  return library::guarded("uiHandoff::construct", false, [&] {
    return library::constructFromBlob(setting, library::BlobField{"ip", ip},
                                      library::BlobField{"port", port});
  });
}

std::string uiHandoff::serialize() {
  return library::guarded("uiHandoff::serialize", std::string(), [&] {
    return library::serializeToBlob(library::BlobField{"ip", ip}, library::BlobField{"port", port});
  });
}

bool uiHandoff::takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/,
                           bool& /*flag*/, Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                           OvIsAdapter& /*adapter*/,
                           const NamedObjMgrForScanner& /*namedObjects*/) {
  return false;
}

KaviAction::ActionType uiHandoff::getType() const { return Handoff; }

bool uiHandoff::requiresOriginalMsg() { return false; }

bool uiHandoff::hasNamedObjects() { return false; }

bool uiHandoff::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                  std::vector<unsigned int>& /*ids*/) {
  return true;
}
