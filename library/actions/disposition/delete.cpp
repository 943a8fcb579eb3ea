#include "library/actions/disposition/delete.h"

#include "library/framework/guard.h"
#include "library/platform/is_adapter.h"
#include "library/tokens/action_utils.h"

bool ActDelete::init(Kavi::GlobalSetting& /*settings*/, Kavi::LogMsg& /*log*/) { return true; }

bool ActDelete::construct(const char* /*setting*/, unsigned int /*length*/) { return true; }

std::string ActDelete::serialize() { return std::string(); }

bool ActDelete::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* /*original*/, bool& flag,
                           Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/, OvIsAdapter& adapter,
                           const NamedObjMgrForScanner& /*namedObjects*/) {
  return library::guarded("ActDelete::takeAction", false, [&] {
    unsigned int error = 0;
    adapter.deleteMessage(error, msg);
    if (error != 0) {
      ActionUtils::L1("Failed to delete a message, error %u.", error);
      return false;
    }
    flag = true;
    return true;
  });
}

KaviAction::ActionType ActDelete::getType() const { return Delete; }

bool ActDelete::requiresOriginalMsg() { return false; }

bool ActDelete::hasNamedObjects() { return false; }

bool ActDelete::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                  std::vector<unsigned int>& /*ids*/) {
  return true;
}

bool uiDelete::construct(const char* /*setting*/, unsigned int /*length*/) { return true; }

std::string uiDelete::serialize() { return std::string(); }

bool uiDelete::takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/,
                          bool& /*flag*/, Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                          OvIsAdapter& /*adapter*/, const NamedObjMgrForScanner& /*namedObjects*/) {
  return false;
}

KaviAction::ActionType uiDelete::getType() const { return Delete; }

bool uiDelete::requiresOriginalMsg() { return false; }

bool uiDelete::hasNamedObjects() { return false; }

bool uiDelete::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                 std::vector<unsigned int>& /*ids*/) {
  return true;
}
