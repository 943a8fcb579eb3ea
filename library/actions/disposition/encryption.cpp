#include "library/actions/disposition/encryption.h"

#include "library/framework/guard.h"
#include "library/tokens/action_utils.h"

bool ActIBEEncrypt::init(Kavi::GlobalSetting& /*settings*/, Kavi::LogMsg& /*log*/) { return true; }

bool ActIBEEncrypt::construct(const char* /*setting*/, unsigned int /*length*/) { return true; }

std::string ActIBEEncrypt::serialize() { return uiIBEEncrypt().serialize(); }

KaviAction::ActionType ActIBEEncrypt::getType() const { return IBEEncrypt; }

bool ActIBEEncrypt::requiresOriginalMsg() { return false; }

bool ActIBEEncrypt::takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/,
                               bool& /*flag*/, Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                               OvIsAdapter& /*adapter*/,
                               const NamedObjMgrForScanner& /*namedObjects*/) {
  return true;
}

bool ActIBEEncrypt::hasNamedObjects() { return false; }

bool ActIBEEncrypt::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                      std::vector<unsigned int>& /*ids*/) {
  return true;
}

bool ActIBEReEncrypt::init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log) {
  return ActIBEEncrypt::init(settings, log);
}

bool ActIBEReEncrypt::construct(const char* setting, unsigned int length) {
  return ActIBEEncrypt::construct(setting, length);
}

std::string ActIBEReEncrypt::serialize() { return ActIBEEncrypt::serialize(); }

KaviAction::ActionType ActIBEReEncrypt::getType() const { return IBEReEncrypt; }

bool ActIBEReEncrypt::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original,
                                 bool& flag, Kavi::TokenMap<Kavi::ScanToken>& tokens,
                                 OvIsAdapter& adapter, const NamedObjMgrForScanner& namedObjects) {
  return ActIBEEncrypt::takeAction(msg, original, flag, tokens, adapter, namedObjects);
}

bool ActIBEDecrypt::init(Kavi::GlobalSetting& /*settings*/, Kavi::LogMsg& /*log*/) {
  ActionUtils::L1("ERROR: Should't enter function ActIBEDecrypt::init");
  return true;
}

bool ActIBEDecrypt::construct(const char* /*setting*/, unsigned int /*length*/) {
  ActionUtils::L1("ERROR: Should't enter function ActIBEDecrypt::construct");
  return true;
}

std::string ActIBEDecrypt::serialize() {
  ActionUtils::L1("ERROR: Should't enter function ActIBEDecrypt::serialize");
  return {};
}

KaviAction::ActionType ActIBEDecrypt::getType() const { return IBEDecrypt; }

bool ActIBEDecrypt::requiresOriginalMsg() { return false; }

bool ActIBEDecrypt::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* /*original*/,
                               bool& flag, Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                               OvIsAdapter& /*adapter*/,
                               const NamedObjMgrForScanner& /*namedObjects*/) {
  flag = false;
  return msg != nullptr;
}

bool ActIBEDecrypt::hasNamedObjects() { return false; }

bool ActIBEDecrypt::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                      std::vector<unsigned int>& /*ids*/) {
  return true;
}

bool uiIBEEncrypt::construct(const char* /*setting*/, unsigned int /*length*/) { return true; }

std::string uiIBEEncrypt::serialize() {
  return library::guarded("uiIBEEncrypt::serialize", std::string(),
                          [] { return std::string("Todo::check with Quillon"); });
}

KaviAction::ActionType uiIBEEncrypt::getType() const { return IBEEncrypt; }

bool uiIBEEncrypt::requiresOriginalMsg() { return false; }

bool uiIBEEncrypt::takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/,
                              bool& /*flag*/, Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                              OvIsAdapter& /*adapter*/,
                              const NamedObjMgrForScanner& /*namedObjects*/) {
  return false;
}

bool uiIBEEncrypt::hasNamedObjects() { return false; }

bool uiIBEEncrypt::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                     std::vector<unsigned int>& /*ids*/) {
  return true;
}
