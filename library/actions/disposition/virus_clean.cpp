#include "library/actions/disposition/virus_clean.h"

bool ActVirusClean::init(Kavi::GlobalSetting& /*settings*/, Kavi::LogMsg& /*log*/) { return true; }

bool ActVirusClean::construct(const char* /*setting*/, unsigned int /*length*/) { return true; }

std::string ActVirusClean::serialize() { return std::string(); }

bool ActVirusClean::takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/,
                               bool& /*flag*/, Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                               OvIsAdapter& /*adapter*/,
                               const NamedObjMgrForScanner& /*namedObjects*/) {
  return true;
}

KaviAction::ActionType ActVirusClean::getType() const { return VirusClean; }

bool ActVirusClean::requiresOriginalMsg() { return false; }

bool ActVirusClean::hasNamedObjects() { return false; }

bool ActVirusClean::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                      std::vector<unsigned int>& /*ids*/) {
  return true;
}

bool uiVirusClean::construct(const char* /*setting*/, unsigned int /*length*/) { return true; }

std::string uiVirusClean::serialize() { return std::string(); }

bool uiVirusClean::takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/,
                              bool& /*flag*/, Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                              OvIsAdapter& /*adapter*/,
                              const NamedObjMgrForScanner& /*namedObjects*/) {
  return false;
}

KaviAction::ActionType uiVirusClean::getType() const { return VirusClean; }

bool uiVirusClean::requiresOriginalMsg() { return false; }

bool uiVirusClean::hasNamedObjects() { return false; }

bool uiVirusClean::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                     std::vector<unsigned int>& /*ids*/) {
  return true;
}
