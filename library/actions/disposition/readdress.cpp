#include "library/actions/disposition/readdress.h"

#include <cctype>
#include <list>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "library/actions/disposition/reprocessing.h"
#include "library/framework/blob_settings.h"
#include "library/framework/guard.h"
#include "library/platform/is_adapter.h"
#include "library/platform/msgu.h"
#include "library/platform/text_utils.h"
#include "library/tokens/action_utils.h"

namespace {

using Kavi::ScanToken;

constexpr char kSeparator = ';';

// Without the spaces around it; other white space is part of an address.
std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// What equal addresses have in common.
std::string comparisonKey(std::string_view address) {
  std::string key(trimmed(address));
  for (char& character : key) {
    character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
  }
  return key;
}

}  // namespace

ActReaddress::ActReaddress() : ActReaddress(false) {}

ActReaddress::ActReaddress(bool append) : appendMode(append) {}

bool ActReaddress::init(Kavi::GlobalSetting& /*settings*/, Kavi::LogMsg& /*log*/) { return true; }

bool ActReaddress::construct(const char* setting, unsigned int length) {
  return library::guarded("ActReaddress::construct", false, [&] {
    uiReaddress settings;
    if (!settings.construct(setting, length)) {
      ActionUtils::L1("Failed to construct Action %s with setting: '%.32s' (max 32 chars)",
                      "Readdress/Bcc", setting != nullptr ? setting : "");
      return false;
    }
    recipients = std::move(settings.rcpt);
    return true;
  });
}

std::string ActReaddress::serialize() {
  return library::guarded("ActReaddress::serialize", std::string(), [&] {
    uiReaddress settings;
    settings.rcpt = recipients;
    return settings.serialize();
  });
}

bool ActReaddress::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* /*original*/,
                              bool& flag, Kavi::TokenMap<ScanToken>& tokens, OvIsAdapter& adapter,
                              const NamedObjMgrForScanner& /*namedObjects*/) {
  return library::guarded("ActReaddress::takeAction", false, [&] {
    if (msg == nullptr) {
      return false;
    }
    std::string pendingBcc;
    if (!_addRcpt(msg, recipients, appendMode) ||
        (getType() == Readdress && !addPendingBcc(msg, tokens, pendingBcc))) {
      ActionUtils::L1("Failed to modify message session(rcpt) with '%s'.", recipients.c_str());
      return false;
    }
    if (getType() != Readdress) {
      rememberBcc(tokens);
      return true;
    }
    if (!resend(msg, tokens, adapter)) {
      return false;
    }
    ActionUtils::L3("Readdress to: %s", recipients.c_str());
    if (!pendingBcc.empty()) {
      ActionUtils::L3("BCC to: %s", pendingBcc.c_str());
    }
    flag = true;
    return true;
  });
}

void ActReaddress::rememberBcc(Kavi::TokenMap<ScanToken>& tokens) const {
  ActionUtils::L3("BCC to: %s", recipients.c_str());
  if (std::string* pending = tokens.find(ScanToken::PendingBcc)) {
    *pending += kSeparator + recipients;
  } else {
    tokens.set(ScanToken::PendingBcc, recipients);
  }
}

// Adds the blind copies of earlier actions again, which the replacement has dropped.
bool ActReaddress::addPendingBcc(OvMsgMailMessage* msg, Kavi::TokenMap<ScanToken>& tokens,
                                 std::string& bcc) const {
  bcc = tokens.valueOrEmpty(ScanToken::PendingBcc);
  if (bcc.empty()) {
    return true;
  }
  if (!_addRcpt(msg, bcc, true)) {
    return false;
  }
  tokens.erase(ScanToken::PendingBcc);
  return true;
}

bool ActReaddress::resend(OvMsgMailMessage* msg, const Kavi::TokenMap<ScanToken>& tokens,
                          OvIsAdapter& adapter) const {
  library::RuleSkippingHeader mark(tokens, msgu::getRootEntity(msg), "readdress");
  unsigned int error = 0;
  const bool sent = adapter.resendMessage(error, msg, 1) == 0;
  mark.restore();
  if (!sent) {
    ActionUtils::L1("Failed to send out readdress-ed message via adapter, error %u.", error);
  }
  return sent;
}

bool ActReaddress::_addRcpt(OvMsgMailMessage* msg, std::string& text, bool append) {
  std::vector<std::string> parts;
  tokenize(text, parts, kSeparator);
  if (parts.empty()) {
    return true;
  }
  std::string normalized;
  for (const std::string& part : parts) {
    normalized += trimmed(part);
    normalized += kSeparator;
  }
  text = std::move(normalized);
  return msgu::setRcpt(msg, text.c_str(), append) && _removeDuplicatedRcpt(msg);
}

bool ActReaddress::_removeDuplicatedRcpt(OvMsgMailMessage* msg) {
  std::string joined;
  std::list<std::string> present;
  // Without knowing who is there, the replacement below would drop recipients.
  if (!msgu::getRcpt(msg, joined, present)) {
    return false;
  }
  std::unordered_set<std::string> seen;
  std::string kept;
  for (const std::string& recipient : present) {
    const std::string_view address = trimmed(recipient);
    if (!address.empty() && seen.insert(comparisonKey(address)).second) {
      kept += address;
      kept += kSeparator;
    }
  }
  return msgu::setRcpt(msg, kept.c_str(), false);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is fixed
bool ActReaddress::_isSameEmailAddress(std::string a, std::string b) {
  return comparisonKey(a) == comparisonKey(b);
}

KaviAction::ActionType ActReaddress::getType() const { return Readdress; }

bool ActReaddress::requiresOriginalMsg() { return false; }

bool ActReaddress::hasNamedObjects() { return false; }

bool ActReaddress::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                     std::vector<unsigned int>& /*ids*/) {
  return true;
}

ActBcc::ActBcc() : ActReaddress(true) {}

bool ActBcc::init(Kavi::GlobalSetting& /*settings*/, Kavi::LogMsg& /*log*/) { return true; }

bool ActBcc::construct(const char* setting, unsigned int length) {
  return ActReaddress::construct(setting, length);
}

std::string ActBcc::serialize() { return ActReaddress::serialize(); }

bool ActBcc::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                        Kavi::TokenMap<ScanToken>& tokens, OvIsAdapter& adapter,
                        const NamedObjMgrForScanner& namedObjects) {
  return ActReaddress::takeAction(msg, original, flag, tokens, adapter, namedObjects);
}

KaviAction::ActionType ActBcc::getType() const { return Bcc; }

bool ActBcc::requiresOriginalMsg() { return false; }

bool ActBcc::hasNamedObjects() { return false; }

bool ActBcc::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                               std::vector<unsigned int>& /*ids*/) {
  return true;
}

bool uiReaddress::construct(const char* setting, unsigned int /*length*/) {
  return library::guarded("uiReaddress::construct", false, [&] {
    return library::constructFromBlob(setting, library::BlobField{"rcpt", rcpt});
  });
}

std::string uiReaddress::serialize() {
  return library::guarded("uiReaddress::serialize", std::string(), [&] {
    return library::serializeToBlob(library::BlobField{"rcpt", rcpt});
  });
}

bool uiReaddress::takeAction(OvMsgMailMessage* /*msg*/, const OvMsgMailMessage* /*original*/,
                             bool& /*flag*/, Kavi::TokenMap<ScanToken>& /*tokens*/,
                             OvIsAdapter& /*adapter*/,
                             const NamedObjMgrForScanner& /*namedObjects*/) {
  return false;
}

KaviAction::ActionType uiReaddress::getType() const { return Readdress; }

bool uiReaddress::requiresOriginalMsg() { return false; }

bool uiReaddress::hasNamedObjects() { return false; }

bool uiReaddress::getNamedObjectIds(const char* /*setting*/, int /*length*/,
                                    std::vector<unsigned int>& /*ids*/) {
  return true;
}

const std::string& uiReaddress::getRcpt() { return rcpt; }

void uiReaddress::setRcpt(const char* text) {
  library::guarded("uiReaddress::setRcpt", false, [&] {
    rcpt = text != nullptr ? text : "";
    return true;
  });
}

bool uiBcc::construct(const char* setting, unsigned int length) {
  return uiReaddress::construct(setting, length);
}

std::string uiBcc::serialize() { return uiReaddress::serialize(); }

KaviAction::ActionType uiBcc::getType() const { return Bcc; }

const std::string& uiBcc::getRcpt() { return uiReaddress::getRcpt(); }

void uiBcc::setRcpt(const char* text) { uiReaddress::setRcpt(text); }
