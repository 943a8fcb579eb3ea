// Places of the identity-based encryption actions. They have no settings and change no message.
#pragma once

#include <string>
#include <vector>

#include "library/framework/kavi_action.h"

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// The encryption action: a place only.
class KAVI_API ActIBEEncrypt : public KaviAction {
 public:
  /// Reads nothing. \return true.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  using KaviAction::getNamedObjectIds;
  /// Accepts anything, null included.
  bool construct(const char* setting, unsigned int length) override;
  /// As uiIBEEncrypt::serialize.
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// \return true. Touches nothing.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  /// Answers true and appends nothing: there are no named objects.
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;
};

/// The re-encryption action: the encryption action under its own code.
class KAVI_API ActIBEReEncrypt : public ActIBEEncrypt {
 public:
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  bool construct(const char* setting, unsigned int length) override;
  std::string serialize() override;
  ActionType getType() const override;
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
};

/// The decryption action: a place that no rule should lead to; building one is logged at level 1.
class KAVI_API ActIBEDecrypt : public KaviAction {
 public:
  /// Logs that it was called. \return true.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  using KaviAction::getNamedObjectIds;
  /// Logs that it was called. \return true.
  bool construct(const char* setting, unsigned int length) override;
  /// Logs that it was called. \return the empty string.
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Clears \p flag. \return whether there is a message.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  /// Answers true and appends nothing: there are no named objects.
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;
};

/// The settings of ActIBEEncrypt and ActIBEReEncrypt: one fixed text.
class KAVI_API uiIBEEncrypt : public KaviAction {
 public:
  using KaviAction::getNamedObjectIds;
  /// Accepts anything, null included.
  bool construct(const char* setting, unsigned int length) override;
  /// The fixed text.
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
};
