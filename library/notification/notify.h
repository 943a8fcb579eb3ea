// Telling people that a rule matched: by mail, and by SNMP trap.
#pragma once

#include "library/framework/kavi_action_n.h"

class OvMsgEntity;
class OvMsgHeader;
class OvMsgMailSessionInfo;
class uiNotifyArea;

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// Sends the notifications that its ids name, in their order. The scanned message stays in the
/// stream; of it, only a "From" field is touched that is missing while the settings ask for the
/// sender named there: it is added, empty.
class KAVI_API ActNotify : public KaviActionN {
 public:
  ActNotify();

  /// Reads the settings of mails and traps. \return true: a missing one gets its default.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Sets \p flag to false. A message that is itself a notification on its way back through
  /// scanning causes none.
  /// \return false at the first notification that could not be sent; those before it stay sent.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;

  /// Composes and delivers one notification, then sends its trap.
  /// \param flag  not used
  /// \return false, logged, when the mail or the trap could not be sent, or \p record is null.
  static bool _runNameObj(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                          Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                          uiNotifyArea* record);

  // Parts of _runNameObj. They let exceptions through.

  /// The field of \p entity named \p name, added at the end of the header if need be.
  /// \return borrowed from the entity; null, logged, when it cannot be had.
  static OvMsgHeader* _get_header(OvMsgEntity* entity, const char* name);
  /// Writes "From" from the envelope's sender, its display name or else its address in quotes.
  /// \param charset   in which a display name is encoded
  /// \param noSender  true writes an empty field.
  /// \return whether the field was written.
  static bool _add_sender_into_header(OvMsgEntity* root, OvMsgMailSessionInfo* session,
                                      const char* charset, bool noSender);
};
