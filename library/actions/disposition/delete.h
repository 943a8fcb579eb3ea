// Deleting the message.
#pragma once

#include <string>
#include <vector>

#include "library/framework/kavi_action.h"

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// Has the delivery adapter delete the message.
class KAVI_API ActDelete : public KaviAction {
 public:
  /// Reads nothing. \return true.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  using KaviAction::getNamedObjectIds;
  /// Accepts anything, null included: there are no settings.
  bool construct(const char* setting, unsigned int length) override;
  /// Always empty.
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Sets \p flag once the message is deleted. \return false, with \p flag as it was, when the
  /// adapter failed.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  /// Answers true and appends nothing: there are no named objects.
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;
};

/// The settings of ActDelete: none.
class KAVI_API uiDelete : public KaviAction {
 public:
  using KaviAction::getNamedObjectIds;
  /// Accepts anything, null included: there are no settings.
  bool construct(const char* setting, unsigned int length) override;
  /// Always empty.
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
