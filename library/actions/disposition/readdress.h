// Changing the envelope recipients: other ones instead, or blind copies besides.
#pragma once

#include <string>
#include <vector>

#include "library/framework/kavi_action.h"

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// Replaces the envelope recipients and has the delivery adapter send the message back through
/// scanning. Blind copies that were added before survive the replacement.
class KAVI_API ActReaddress : public KaviAction {
 public:
  ActReaddress();

  /// Reads nothing. \return true.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  using KaviAction::getNamedObjectIds;
  /// Reads a record of uiReaddress. \return false, logged, with the recipients as they were, if it
  /// is none.
  bool construct(const char* setting, unsigned int length) override;
  /// As uiReaddress::serialize.
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Sets \p flag once the message is sent. Brings the action's own recipients into the form
  /// "a;b;". \return false when the recipients could not be set or the message not be sent; an
  /// envelope that was changed by then stays changed.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  /// Answers true and appends nothing: there are no named objects.
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;

  // Parts of takeAction. They let exceptions through.

  /// Brings \p text into the form "a;b;" and adds its addresses to the envelope, or puts them in
  /// the place of those there; then drops doubled recipients. No address at all changes nothing.
  static bool _addRcpt(OvMsgMailMessage* msg, std::string& text, bool append);
  /// Keeps the first of equal recipients, in the order and the spelling there. Takes time linear in
  /// their number.
  static bool _removeDuplicatedRcpt(OvMsgMailMessage* msg);
  /// Whether two addresses are the same but for spaces around them and for case.
  static bool _isSameEmailAddress(std::string a, std::string b);

  std::string recipients;  ///< addresses separated by ";"
  bool appendMode;         ///< true adds the recipients, false replaces those there

 protected:
  explicit ActReaddress(bool append);

 private:
  void rememberBcc(Kavi::TokenMap<Kavi::ScanToken>& tokens) const;
  bool addPendingBcc(OvMsgMailMessage* msg, Kavi::TokenMap<Kavi::ScanToken>& tokens,
                     std::string& bcc) const;
  bool resend(OvMsgMailMessage* msg, const Kavi::TokenMap<Kavi::ScanToken>& tokens,
              OvIsAdapter& adapter) const;
};

/// Adds blind-copy recipients to the envelope and remembers them for a readdress action that
/// follows. The message stays in the stream.
class KAVI_API ActBcc : public ActReaddress {
 public:
  ActBcc();

  /// Reads nothing. \return true.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  using KaviAction::getNamedObjectIds;
  bool construct(const char* setting, unsigned int length) override;
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Leaves \p flag alone. \return false when the recipients could not be added.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;
};

/// The settings of ActReaddress: a key/value record of "rcpt".
class KAVI_API uiReaddress : public KaviAction {
 public:
  using KaviAction::getNamedObjectIds;
  /// Reads the record \p setting, a NUL-terminated text; \p length is ignored. \return false, with
  /// the recipients as they were, when there is no such field.
  bool construct(const char* setting, unsigned int length) override;
  /// The record; the empty string when the field cannot be stored.
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Answers false and does nothing: settings are not run.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  /// Answers true and appends nothing: there are no named objects.
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;

  /// The recipients, valid until they change.
  virtual const std::string& getRcpt();
  /// Replaces the recipients. \param text  NUL-terminated; null counts as empty. A failure, logged,
  /// leaves them as they were.
  virtual void setRcpt(const char* text);

  std::string rcpt;  ///< addresses separated by ";"
};

/// The settings of ActBcc: those of a readdress action.
class KAVI_API uiBcc : public uiReaddress {
 public:
  bool construct(const char* setting, unsigned int length) override;
  std::string serialize() override;
  ActionType getType() const override;
  const std::string& getRcpt() override;
  void setRcpt(const char* text) override;
};
