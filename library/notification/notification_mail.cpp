#include "library/notification/notification_mail.h"

#include "library/actions/disposition/reprocessing.h"
#include "library/namedobj/notify_area.h"
#include "library/notification/mail_identity.h"
#include "library/notification/notify_settings.h"
#include "library/platform/is_adapter.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_mail_message.h"
#include "library/platform/ov_msg_session_info.h"
#include "library/tokens/action_utils.h"

namespace library {

NotificationMail::NotificationMail(const NotificationSource& source, NotificationTexts& texts)
    : source_(source), record_(source.record), texts_(texts) {}

bool NotificationMail::send(OvIsAdapter& adapter) {
  if (!create()) {
    return false;
  }
  messageId_ = makeMessageId();
  if (!setRecipients() || !openSession() || !setSender()) {
    return false;
  }
  if (record_.notifySender) {
    addScannedSender();
  }
  if (record_.notifyRecipients && !addScannedRecipients()) {
    return false;
  }
  switch (readRecipientsBack()) {
    case Recipients::Unknown:
      return false;
    case Recipients::Blank:
      return true;
    case Recipients::Usable:
      break;
  }
  return writeHeaders() && insertBody() && (!record_.attachMessage || attachScannedMessage()) &&
         deliver(adapter);
}

bool NotificationMail::create() {
  message_.reset(OvMsg_CreateMailMessage());
  if (message_ == nullptr) {
    ActionUtils::L1("Failed to create Message object instance.");
    return false;
  }
  root_ = msgu::getRootEntity(message_.get());
  if (root_ == nullptr) {
    ActionUtils::L1("Cannot retrieve root Entity from the composing notification message.");
    // NOLINTNEXTLINE(bugprone-unused-return-value): the one message that hosts expect to be left
    message_.release();
    return false;
  }
  return true;
}

std::string NotificationMail::makeMessageId() const {
  if (!g_add_msg_id || source_.msg == nullptr) {
    return {};
  }
  const std::uint64_t now = microsecondsNow();
  const std::string host = hostName();
  const char* const id = source_.msg->id();
  return mailMessageId(g_scanner_id, now, id != nullptr ? id : "", host.c_str());
}

bool NotificationMail::deliver(OvIsAdapter& adapter) {
  if (session_ == nullptr || session_->recipientCount() == 0) {
    ActionUtils::L2("Skip SMTP notification due to zero recipient.");
    return true;
  }
  unsigned int error = 0;
  if (record_.attachMessage && !g_skip_scan) {
    // Asked for again: an attachment may have put another entity on top.
    RuleSkippingHeader mark(source_.tokens, msgu::getRootEntity(message_.get()), "notification");
    adapter.resendMessage(error, message_.get(), 1);
    mark.restore();
  } else {
    adapter.deliverMessage(error, message_.get());
  }
  session_.reset();
  message_.reset();
  if (error != 0) {
    ActionUtils::L1("Failed to send notification through SMTP Adapter, error %u.", error);
    return false;
  }
  return true;
}

}  // namespace library
