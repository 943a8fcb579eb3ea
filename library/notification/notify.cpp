#include "library/notification/notify.h"

#include <string>

#include "library/framework/guard.h"
#include "library/framework/message_handles.h"
#include "library/namedobj/notify_area.h"
#include "library/notification/notification_mail.h"
#include "library/notification/notify_settings.h"
#include "library/notification/trap.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_entity.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_header.h"
#include "library/platform/ov_msg_session_info.h"
#include "library/tokens/action_utils.h"

namespace {

using Kavi::ScanToken;

constexpr std::size_t kSenderReserve = 1024;

// Whether the message is a notification of ours that came back through scanning: notifications of
// notifications would never end.
bool isReturnedNotification(OvMsgMailMessage* msg, const Kavi::TokenMap<ScanToken>& tokens) {
  if (tokens.valueOrEmpty(ScanToken::Rescanned) != "yes") {
    return false;
  }
  std::string type;
  msgu::getHeader(msgu::getRootEntity(msg), "X-kavi-reprocess-type", type);
  return type == "notification";
}

// The record of \p id; null, logged, when there is none or it is no notification.
uiNotifyArea* findRecord(unsigned int id, const NamedObjMgrForScanner& namedObjects) {
  KaviNamedObj* const record = namedObjects.find(id);
  if (record == nullptr) {
    ActionUtils::L1("Invalid name object type reference. id=%u", id);
    return nullptr;
  }
  if (record->getType() != KaviNamedObj::NotificationType) {
    ActionUtils::L1("Incorrect name object type reference. type=%u", record->getType());
    return nullptr;
  }
  return static_cast<uiNotifyArea*>(record);
}

// A scope of its own: a mail that was dropped is gone, too, before the trap goes out.
bool sendMail(const library::NotificationSource& source, library::NotificationTexts& texts,
              OvIsAdapter& adapter) {
  return library::NotificationMail(source, texts).send(adapter);
}

}  // namespace

ActNotify::ActNotify() : KaviActionN(Notify, true) {}

bool ActNotify::init(Kavi::GlobalSetting& settings, Kavi::LogMsg& /*log*/) {
  return library::guarded("ActNotify::init", true, [&] {
    library::readNotifySettings(settings);
    return true;
  });
}

KaviAction::ActionType ActNotify::getType() const { return Notify; }

bool ActNotify::requiresOriginalMsg() { return true; }

bool ActNotify::hasNamedObjects() { return true; }

bool ActNotify::takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                           Kavi::TokenMap<ScanToken>& tokens, OvIsAdapter& adapter,
                           const NamedObjMgrForScanner& namedObjects) {
  return library::guarded("ActNotify::takeAction", false, [&] {
    flag = false;
    if (ids.empty()) {
      return false;
    }
    if (isReturnedNotification(msg, tokens)) {
      ActionUtils::L2("Skip SMTP notification due to it's a notification mail already.");
      return true;
    }
    for (const unsigned int id : ids) {
      uiNotifyArea* const record = findRecord(id, namedObjects);
      if (record == nullptr) {
        return false;
      }
      if (!_runNameObj(msg, original, flag, tokens, adapter, record)) {
        ActionUtils::L1("Failed to send out notification, named '%s' (id=%u).",
                        record->name.c_str(), id);
        return false;
      }
    }
    return true;
  });
}

bool ActNotify::_runNameObj(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& /*flag*/,
                            Kavi::TokenMap<ScanToken>& tokens, OvIsAdapter& adapter,
                            uiNotifyArea* record) {
  return library::guarded("ActNotify::_runNameObj", false, [&] {
    if (record == nullptr) {
      return false;
    }
    const library::NotificationSource source{*record, msg, original, tokens};
    library::NotificationTexts texts;
    return library::makeNotificationTexts(*record, tokens, msg, texts) &&
           sendMail(source, texts, adapter) && library::sendTrap(*record, texts.trap);
  });
}

OvMsgHeader* ActNotify::_get_header(OvMsgEntity* entity, const char* name) {
  if (OvMsgHeader* const present = entity->header(name)) {
    return present;
  }
  if (!entity->addHeader(-1, name, "", nullptr)) {
    ActionUtils::L2("Failed to set header '%s'.", name);
    return nullptr;
  }
  OvMsgHeader* const added = entity->header(name);
  if (added == nullptr) {
    ActionUtils::L2("Failed to get header '%s'.", name);
  }
  return added;
}

bool ActNotify::_add_sender_into_header(OvMsgEntity* root, OvMsgMailSessionInfo* session,
                                        const char* charset, bool noSender) {
  if (noSender) {
    msgu::setHeader(root, "From", "", nullptr);
    return true;
  }
  OvMsgHeader* const from = _get_header(root, "From");
  const OvMsgAddress* const sender = session->sender();
  const char* const address = sender != nullptr ? sender->address() : nullptr;
  if (from == nullptr || address == nullptr) {
    return false;
  }
  const char* const name = sender->displayName();
  library::EncodedText encoded;
  if (name != nullptr && *name != '\0') {
    int error = OVMSGERR::Ok;
    encoded.reset(msgu::genRfc2047(name, charset, error));
  }
  std::string value;
  value.reserve(kSenderReserve);
  value += '"';
  value += encoded != nullptr ? encoded.get() : address;
  value += "\" <";
  value += address;
  value += '>';
  return from->setValue(value.c_str(), nullptr) == OVMSGERR::Ok;
}
