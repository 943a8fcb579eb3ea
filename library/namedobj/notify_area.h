// Notification: who is told that a rule matched, with what text, by mail and by SNMP trap.
#pragma once

#include <string>

#include "library/platform/api.h"
#include "library/platform/kavi_named_obj.h"

/// The record of a notification. Its settings string holds the fields in the order in which they
/// stand here: texts as "length:bytes:", numbers and flags (0 or 1) as "number:". Subject, body and
/// trap message are templates in UTF-8, with tokens.
class KAVI_API uiNotifyArea : public KaviNamedObj {
 public:
  uiNotifyArea();
  ~uiNotifyArea() override;

  std::string name;        ///< what log lines call the notification
  std::string sender;      ///< address of the mail's sender; empty for the null sender
  std::string recipients;  ///< addresses separated by ";"; also the start of the "To" field
  std::string subject;
  std::string body;
  std::string trapMessage;        ///< text of the SNMP trap; empty for no trap
  bool notifySender = false;      ///< the scanned mail's sender gets the mail, too
  bool notifyRecipients = false;  ///< the scanned mail's recipients get the mail, too
  bool sendTrap = false;          ///< an SNMP trap goes out as well
  bool derived = false;           ///< after `construct`: whether the type is neither below 3 nor 26
  unsigned int type = 0;          ///< the specific type of the trap
  bool attachMessage = false;     ///< the mail carries the scanned message
  bool attachModifiedMessage = false;  ///< as it stands after the actions so far, not as received

  /// Fields read before a fault keep their new values.
  bool construct(const char* setting, unsigned int length) override;
  /// \return the empty string on failure.
  std::string serialize() override;
  unsigned int getType() const override;
};
