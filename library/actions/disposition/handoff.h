// Handing the message to another mail host.
#pragma once

#include <string>
#include <vector>

#include "library/framework/kavi_action.h"

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// Has the delivery adapter pass the message to another mail host.
class KAVI_API ActHandoff : public KaviAction {
 public:
  /// Reads whether the message id is to be removed; a missing setting leaves that as it was.
  /// \return true.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);
  /// That setting, kept for the host; nothing in the library goes by it. False before `init`.
  static bool getRemoveMessageIdFlag();

  using KaviAction::getNamedObjectIds;
  /// Reads a record of uiHandoff. \return false, logged, with the members as they were, if it is
  /// none.
  bool construct(const char* setting, unsigned int length) override;
  /// As uiHandoff::serialize.
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Fails without a trace when host or port is not set. Otherwise sets \p flag first, so that it
  /// is true even when the adapter then fails.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  /// Answers true and appends nothing: there are no named objects.
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;

  std::string ip;  ///< the host, an address as text
  int port = 0;

 private:
  static bool s_removeMessageId;
};

/// The settings of ActHandoff: a key/value record of "ip" and "port".
class KAVI_API uiHandoff : public KaviAction {
 public:
  using KaviAction::getNamedObjectIds;
  /// Reads the record \p setting, a NUL-terminated text; \p length is ignored. \return false when a
  /// field cannot be read; those before it keep their new values.
  bool construct(const char* setting, unsigned int length) override;
  /// The record; the empty string when a field cannot be stored.
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

  std::string ip;  ///< the host, an address as text
  int port = 0;
};
