#include "library/actions/disposition/quarantine.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include "library/actions/disposition/reprocessing.h"
#include "library/framework/guard.h"
#include "library/namedobj/quarantine_area.h"
#include "library/platform/global_setting.h"
#include "library/platform/is_adapter.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_mail_message.h"
#include "library/tokens/action_utils.h"

namespace {

using Kavi::ScanToken;

constexpr std::size_t kMaxIdLength = 36;

// Leaves the aging days in the token map for the adapter, which keeps them with the copy.
void passOnAging(const uiQuarantineArea& area, Kavi::TokenMap<ScanToken>& tokens) {
  std::string days;
  if (area.agingEnabled) {
    days = std::to_string(area.agingDays);
    ActionUtils::L3("Aging of the quarantined message is %u day(s).", area.agingDays);
  } else {
    ActionUtils::L2("Aging of the quarantined message is off.");
  }
  tokens.set(ScanToken::QuarantineAgingDays, std::move(days));
}

}  // namespace

std::string ActQuarantine::s_quarantinePath;

ActQuarantine::ActQuarantine() : KaviActionN(Quarantine, false) {}

bool ActQuarantine::init(Kavi::GlobalSetting& settings, Kavi::LogMsg& /*log*/) {
  return library::guarded("ActQuarantine::init", false, [&] {
    return settings.getString("queue_quarantine", s_quarantinePath, "general", 0) == 0;
  });
}

KaviAction::ActionType ActQuarantine::getType() const { return Quarantine; }

bool ActQuarantine::requiresOriginalMsg() { return false; }

bool ActQuarantine::hasNamedObjects() { return true; }

void ActQuarantine::fillInTokenMap(Kavi::TokenMap<ScanToken>& tokens,
                                   const NamedObjMgrForScanner& namedObjects) {
  library::guarded("ActQuarantine::fillInTokenMap", false, [&] {
    if (ids.empty()) {
      return false;
    }
    tokens.set(ScanToken::QuarantineAreaId, std::to_string(ids.front()));
    const auto* area = dynamic_cast<const uiQuarantineArea*>(namedObjects.find(ids.front()));
    if (area == nullptr) {
      ActionUtils::L1("Invalid name object type reference. id=%u", ids.front());
      return false;
    }
    tokens.set(ScanToken::QuarantineArea, area->areaName);
    return true;
  });
}

bool ActQuarantine::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* /*original*/,
                               bool& flag, Kavi::TokenMap<ScanToken>& tokens, OvIsAdapter& adapter,
                               const NamedObjMgrForScanner& namedObjects) {
  return library::guarded("ActQuarantine::takeAction", false, [&] {
    // Before anything can fail: callers rely on the flag even when the quarantine fails.
    flag = true;
    if (ids.empty()) {
      return false;
    }
    const KaviNamedObj* record = namedObjects.find(ids.front());
    if (record == nullptr) {
      ActionUtils::L1("Invalid name object type reference. id=%u", ids.front());
      return false;
    }
    if (record->getType() != KaviNamedObj::QuarantineAreaType) {
      ActionUtils::L1("Incorrect name object type reference. type=%u", record->getType());
      return false;
    }
    passOnAging(*static_cast<const uiQuarantineArea*>(record), tokens);
    return handOver(msg, tokens, adapter);
  });
}

bool ActQuarantine::handOver(OvMsgMailMessage* msg, Kavi::TokenMap<ScanToken>& tokens,
                             OvIsAdapter& adapter) {
  // The copy carries the rule that fired, so that its release does not end here again; the message
  // in the stream loses the mark.
  library::RuleSkippingHeader mark(tokens, msgu::getRootEntity(msg), "quarantine");
  char path[kQuarantinePathSize] = {};
  unsigned int error = 0;
  const bool filed = adapter.quarantineMessage(error, msg, "", s_quarantinePath.c_str(), path) == 0;
  if (filed) {
    tokens.set(ScanToken::QuarantinePath, path);
  } else {
    ActionUtils::L1("Failed to quarantine the message. err=0x%08X(%ud), path='%s'", error, error,
                    s_quarantinePath.c_str());
  }
  mark.restore();
  return filed;
}

bool ActQuarantine::_genQuarantinePath(std::string& path, const OvMsgMailMessage* msg) {
  return library::guarded("ActQuarantine::_genQuarantinePath", false, [&] {
    if (msg == nullptr) {
      return false;
    }
    const char* const text = msg->id();
    const std::string id(std::string_view(text != nullptr ? text : "").substr(0, kMaxIdLength));
    std::string whole = s_quarantinePath;
    for (const char level : std::string_view(id).substr(0, 2)) {
      whole += '/';
      whole += level;
    }
    whole += '/' + id + ".DF";
    whole.resize(std::min<std::size_t>(whole.size(), kQuarantinePathSize - 1));
    path = std::move(whole);
    return true;
  });
}
