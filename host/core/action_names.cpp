#include "host/core/action_names.h"

#include <optional>

#include "host/core/action_list.h"
#include "host/core/guard.h"
#include "host/core/text_escape.h"
#include "library/platform/res_bundle.h"

namespace {

using host::core::TakenAction;

constexpr char kUnknown[] = "Unknown";
constexpr char kGroup[] = "IDG_KAVI_ACTIONS";

const char* nameOf(int code) {
  switch (code) {
    case KaviAction::Archive:
      return "Archive";
    case KaviAction::Delete:
      return "Delete";
    case KaviAction::Quarantine:
      return "Quarantine";
    case KaviAction::Readdress:
      return "Readdress";
    case KaviAction::DeleteAttachment:
      return "DeleteAttachment";
    case KaviAction::VirusClean:
      return "VirusClean";
    case KaviAction::TagSubject:
      return "TagSubject";
    case KaviAction::Stamp:
      return "Stamp";
    case KaviAction::Bcc:
      return "Bcc";
    case KaviAction::Notify:
      return "Notify";
    case KaviAction::Handoff:
      return "Handoff";
    case KaviAction::Postpone:
      return "Postpone";
    case KaviAction::Packwatch:
      return "Packwatch";
    case KaviAction::InsertXHeaderTag:
      return "InsertXHeaderTag";
    case KaviAction::IBEDecrypt:
      return "IBEDecrypt";
    case KaviAction::IBEEncrypt:
      return "IBEEncrypt";
    case KaviAction::IBEReEncrypt:
      return "IBEReEncrypt";
    default:
      return nullptr;
  }
}

std::string textOr(const Kavi::OvCachedResbundle& texts, const std::string& id,
                   const char* otherwise) {
  std::string text;
  return texts.getString(id.c_str(), text) && !text.empty() ? text : otherwise;
}

}  // namespace

bool host::core::isAssignedActionType(int code) { return nameOf(code) != nullptr; }

const char* KaviAction::getActionName(ActionType type) {
  const char* name = nameOf(type);
  return name != nullptr ? name : kUnknown;
}

// "Postpone (08:30), Delete": the localised name of every action, with its detail in brackets.
bool KaviAction::CreateActionTokenString(const char* raw, std::string& out) {
  if (raw == nullptr) return false;
  return host::core::guarded(false, [raw, &out] {
    const auto actions = host::core::parseTakenActions(raw);
    if (!actions) return false;
    const Kavi::OvCachedResbundle texts(kGroup);
    const std::string separator = textOr(texts, "IDS_ACTION_SEPARATOR", ", ");
    std::string text;
    for (const TakenAction& action : *actions) {
      if (!text.empty()) text += separator;
      const std::string id = std::string("IDS_ACTION_") + getActionName(action.type);
      text += textOr(texts, id, getActionName(action.type));
      if (action.detail.empty()) continue;
      text += " (";
      host::core::appendPrintable(text, action.detail);
      text += ')';
    }
    out.swap(text);
    return true;
  });
}
