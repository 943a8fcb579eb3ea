#include "library/actions/modification/x_header.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "library/framework/guard.h"
#include "library/platform/msgu.h"
#include "library/tokens/action_utils.h"

namespace {

constexpr std::size_t kMaxSetting = 512;

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) {
    return std::string();
  }
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

bool isPrintable(char byte) { return byte >= 32 && byte <= 126; }

}  // namespace

bool ActInsertXHeaderTag::init(Kavi::GlobalSetting& /*settings*/, Kavi::LogMsg& /*log*/) {
  return true;
}

bool ActInsertXHeaderTag::construct(const char* setting, unsigned int length) {
  return library::guarded("ActInsertXHeaderTag::construct", false, [&] {
    headerName.clear();
    headerValue.clear();
    if (setting == nullptr || length == 0) {
      return false;
    }
    uiInsertXHeaderTag settings;
    if (!settings.construct(setting, length)) {
      // The setting itself is never printed.
      ActionUtils::L1("Failed to construct Action %s with setting: '%.32s' (max 32 chars)",
                      "InsertXHeaderTag", "");
      return false;
    }
    return settings.getXHeaderTag(headerName, headerValue) && !headerName.empty() &&
           !headerValue.empty();
  });
}

std::string ActInsertXHeaderTag::serialize() {
  return library::guarded("ActInsertXHeaderTag::serialize", std::string(), [&] {
    uiInsertXHeaderTag settings;
    return settings.setXHeaderTag(headerName, headerValue) ? settings.serialize() : std::string();
  });
}

bool ActInsertXHeaderTag::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* /*original*/,
                                     bool& flag, Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                                     OvIsAdapter& /*adapter*/,
                                     const NamedObjMgrForScanner& /*namedObjects*/) {
  return library::guarded("ActInsertXHeaderTag::takeAction", false, [&] {
    flag = false;
    if (msg == nullptr || headerName.empty() || headerValue.empty()) {
      return false;
    }
    OvMsgEntity* root = msgu::getRootEntity(msg);
    if (root == nullptr) {
      return false;
    }
    if (!msgu::setHeader(root, headerName.c_str(), headerValue.c_str(), nullptr)) {
      ActionUtils::L2("Failed to set header '%s'.", headerName.c_str());
      return false;
    }
    return true;
  });
}

KaviAction::ActionType ActInsertXHeaderTag::getType() const { return InsertXHeaderTag; }

bool ActInsertXHeaderTag::requiresOriginalMsg() { return false; }

bool ActInsertXHeaderTag::hasNamedObjects() { return false; }

bool ActInsertXHeaderTag::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                            std::vector<unsigned int>& /*ids*/) {
  return true;
}

bool uiInsertXHeaderTag::construct(const char* setting, unsigned int length) {
  return library::guarded("uiInsertXHeaderTag::construct", false, [&] {
    const unsigned int readable = std::min<unsigned int>(length, INT_MAX);
    std::string checked;
    if (!_checkXHeaderTagValidation(setting, static_cast<int>(readable), checked)) {
      return false;
    }
    const std::size_t colon = checked.find(':');
    std::string name = trimmed(checked.substr(0, colon));
    std::string value = trimmed(checked.substr(colon + 1));
    headerName.swap(name);
    headerValue.swap(value);
    return !headerName.empty() && !headerValue.empty();
  });
}

std::string uiInsertXHeaderTag::serialize() {
  return library::guarded("uiInsertXHeaderTag::serialize", std::string(),
                          [&] { return headerName + ":" + headerValue; });
}

bool uiInsertXHeaderTag::takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/,
                                    bool& /*flag*/, Kavi::TokenMap<Kavi::ScanToken>& /*tokens*/,
                                    OvIsAdapter& /*adapter*/,
                                    const NamedObjMgrForScanner& /*namedObjects*/) {
  return false;
}

KaviAction::ActionType uiInsertXHeaderTag::getType() const { return InsertXHeaderTag; }

bool uiInsertXHeaderTag::requiresOriginalMsg() { return false; }

bool uiInsertXHeaderTag::getXHeaderTag(std::string& name, std::string& value) {
  return library::guarded("uiInsertXHeaderTag::getXHeaderTag", false, [&] {
    std::string nameCopy = headerName;
    std::string valueCopy = headerValue;
    name.swap(nameCopy);
    value.swap(valueCopy);
    return true;
  });
}

bool uiInsertXHeaderTag::setXHeaderTag(std::string& name, std::string& value) {
  return library::guarded("uiInsertXHeaderTag::setXHeaderTag", false, [&] {
    std::string nameCopy = name;
    std::string valueCopy = value;
    headerName.swap(nameCopy);
    headerValue.swap(valueCopy);
    return true;
  });
}

bool uiInsertXHeaderTag::_checkXHeaderTagValidation(const char* setting, int length,
                                                    std::string& checked) {
  return library::guarded("uiInsertXHeaderTag::_checkXHeaderTagValidation", false, [&] {
    if (setting == nullptr || length <= 0) {
      return false;
    }
    // One byte more than is allowed tells a text that is too long, however long it is.
    const std::size_t size = strnlen(setting, std::min<std::size_t>(length, kMaxSetting + 1));
    if (size == 0 || size > kMaxSetting) {
      return false;
    }
    checked.assign(setting, size);
    return checked.find(':') != std::string::npos &&
           std::all_of(checked.begin(), checked.end(), isPrintable);
  });
}
