// Who gets a notification, and what its "To" says of that.
#include <algorithm>
#include <list>
#include <string_view>

#include "library/namedobj/notify_area.h"
#include "library/notification/notification_mail.h"
#include "library/notification/notify.h"
#include "library/notification/notify_settings.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_header.h"
#include "library/platform/ov_msg_mail_message.h"
#include "library/platform/ov_msg_session_info.h"
#include "library/platform/text_utils.h"
#include "library/tokens/action_utils.h"

namespace library {

namespace {

using Kavi::ScanToken;

constexpr char kSeparator = ';';
constexpr char kHiddenRecipients[] = "\"NotificationRecipients\"<NotificationRecipients>";
// What stands for the recipient of a mail that was fetched by POP3.
constexpr char kPop3Recipient[] = "POP3_Mail_Recipient";

// Whether a list of recipients that is \p text has one entry at most: what a scanned mail names as
// its sender must not bring in others. A separator within quotes is part of an address.
bool isOneEntry(std::string_view text) {
  bool quoted = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (quoted && text[at] == '\\') {
      ++at;
    } else if (text[at] == '"') {
      quoted = !quoted;
    } else if (text[at] == kSeparator && !quoted) {
      return false;
    }
  }
  return true;
}

bool isBlank(std::string_view text) {
  return text.find_first_not_of(' ') == std::string_view::npos;
}

// Whether a list of recipients that is \p text has entries, and all are blank. The message library
// does not take those into the envelope.
bool hasBlankEntriesOnly(std::string_view text) {
  return text.find(' ') != std::string_view::npos &&
         text.find_first_not_of(" ;") == std::string_view::npos;
}

}  // namespace

bool NotificationMail::setRecipients() {
  to_ = record_.recipients;
  if (msgu::setRcpt(message_.get(), record_.recipients.c_str(), false)) {
    return true;
  }
  ActionUtils::L1(
      "Failed to set recipient address(es) into notification message, length %u byte(s).",
      static_cast<unsigned int>(record_.recipients.size()));
  return false;
}

bool NotificationMail::openSession() {
  session_.reset(message_->sessionInfo());
  if (session_ == nullptr) {
    ActionUtils::L1("Invalid session information in notification message.");
    return false;
  }
  return true;
}

bool NotificationMail::setSender() {
  const std::string& sender = record_.sender;
  if (!sender.empty()) {
    const int error = session_->setSender(sender.c_str());
    if (error != OVMSGERR::Ok) {
      ActionUtils::L1(
          "Failed to set sender address into notification message, error %u ('%s'), length %u "
          "byte(s).",
          static_cast<unsigned int>(error), OVMSGERR::I2A(error),
          static_cast<unsigned int>(sender.size()));
      return false;
    }
  }
  ActNotify::_add_sender_into_header(root_, session_.get(), texts_.charset.c_str(), sender.empty());
  return true;
}

void NotificationMail::addScannedSender() {
  const std::string address = scannedSender();
  bool added = !address.empty() && address != " ";
  if (added) {
    added = isOneEntry(address) && msgu::setRcpt(message_.get(), address.c_str(), true);
    if (!added) {
      ActionUtils::L3("Invalid message sender for SMTP Notification recipient.");
    }
    to_ += kSeparator + address;
  }
  if (!added) {
    ActionUtils::L3(
        "Original message sender is empty and cannot be added into SMTP notification recipient.");
  }
}

// The address that "From" names, or the sender that scanning saw; empty when there is none.
std::string NotificationMail::scannedSender() {
  const char* address = nullptr;
  if (g_get_sender_from_MIME) {
    OvMsgEntity* const root = msgu::getRootEntity(source_.msg);
    OvMsgHeader* const from = root != nullptr ? ActNotify::_get_header(root, "From") : nullptr;
    address = from != nullptr ? from->address() : nullptr;
  } else if (source_.msg != nullptr) {
    address = ActionUtils::getTokenValue(source_.tokens, "%SENDER%", *source_.msg);
  } else {
    address = source_.tokens.valueOrEmpty(ScanToken::Sender).c_str();
  }
  return address != nullptr ? address : "";
}

bool NotificationMail::addScannedRecipients() {
  to_ += kSeparator;
  to_ += g_hide_recipients ? kHiddenRecipients
                           : source_.tokens.valueOrEmpty(ScanToken::Recipients).c_str();
  const Session scanned(source_.msg != nullptr ? source_.msg->sessionInfo() : nullptr);
  if (scanned == nullptr) {
    ActionUtils::L3("Invalid session information in original message.");
    return false;
  }
  if (scanned->recipientCount() == 1) {
    insertOneRecipient(scanned->recipientAt(0));
  } else {
    insertRecipients(*scanned);
  }
  return true;
}

// A mail fetched by POP3 has no recipient in its envelope; scanning knows it from elsewhere.
void NotificationMail::insertOneRecipient(const char* address) {
  if (address == nullptr) {
    return;
  }
  const std::string& known = source_.tokens.valueOrEmpty(ScanToken::Recipients);
  const bool isLabel = platform_icasencmp(address, kPop3Recipient, sizeof kPop3Recipient - 1) == 0;
  const char* const recipient = isLabel && !known.empty() ? known.c_str() : address;
  session_->insertRecipient(session_->recipientCount(), recipient);
}

void NotificationMail::insertRecipients(const OvMsgMailSessionInfo& from) {
  int place = session_->recipientCount();
  const int count = from.recipientCount();
  for (int index = 0; index < count; ++index) {
    const char* const address = from.recipientAt(index);
    if (address != nullptr && !isBlank(address)) {
      session_->insertRecipient(place++, address);
    }
  }
}

NotificationMail::Recipients NotificationMail::readRecipientsBack() {
  std::string joined;
  std::list<std::string> recipients;
  if (!msgu::getRcpt(message_.get(), joined, recipients)) {
    ActionUtils::L1("Failed to get recipient address(es) from notification message.");
    return Recipients::Unknown;
  }
  // That nobody was named at all is told of at the delivery.
  const bool blank = recipients.empty()
                         ? hasBlankEntriesOnly(record_.recipients)
                         : std::all_of(recipients.begin(), recipients.end(), isBlank);
  if (blank) {
    ActionUtils::L1("No valid recipient in notification message.");
    return Recipients::Blank;
  }
  return Recipients::Usable;
}

}  // namespace library
