// The mail of one notification: composed, handed to the delivery adapter, and deleted.
#pragma once

#include <string>

#include "library/framework/message_handles.h"
#include "library/notification/notification_texts.h"
#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"

class OvIsAdapter;
class OvMsgEntity;
class OvMsgHeader;
class OvMsgMailMessage;
class uiNotifyArea;

namespace library {

/// What a notification is made from. All borrowed.
struct NotificationSource {
  const uiNotifyArea& record;
  OvMsgMailMessage* msg;             ///< the scanned message as it stands; may be null
  const OvMsgMailMessage* original;  ///< the scanned message as received; may be null
  Kavi::TokenMap<Kavi::ScanToken>& tokens;
};

/// Composes one mail, once. What it creates is released with it, on every path.
class NotificationMail {
 public:
  /// \param texts  borrowed; its charset becomes the one that the subject turned out to need.
  NotificationMail(const NotificationSource& source, NotificationTexts& texts);

  /// \return false, logged, when the mail could not be composed or not be handed over. A mail that
  ///   has nobody to go to is dropped, which is no failure.
  bool send(OvIsAdapter& adapter);

 private:
  enum class Recipients { Unknown, Blank, Usable };

  bool create();
  std::string makeMessageId() const;

  // notification_recipients.cpp
  bool setRecipients();
  bool openSession();
  bool setSender();
  void addScannedSender();
  std::string scannedSender();
  bool addScannedRecipients();
  void insertOneRecipient(const char* address);
  void insertRecipients(const OvMsgMailSessionInfo& from);
  Recipients readRecipientsBack();

  // notification_headers.cpp
  bool writeHeaders();
  void writeSubject(OvMsgHeader& subject);
  void writeContentType(OvMsgHeader& type);
  void writeRemainingHeaders();

  // notification_content.cpp
  bool insertBody();
  bool attachScannedMessage();

  bool deliver(OvIsAdapter& adapter);

  const NotificationSource& source_;
  const uiNotifyArea& record_;
  NotificationTexts& texts_;
  OwnMessage message_;
  Session session_;  // behind the message: released before it
  OvMsgEntity* root_ = nullptr;
  std::string messageId_;
  std::string to_;
};

/// Drops the first transfer encoding of a root whose content type says multipart: what was declared
/// of the text before now stands at the text's own part. Null is accepted.
void _remove_content_transfer_encoding_for_multipart_email(OvMsgEntity* root);

}  // namespace library
