// Virus cleaning, which the scanner does by itself: the action stands in the rule only.
#pragma once

#include <string>
#include <vector>

#include "library/framework/kavi_action.h"

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// Does nothing: scanning has cleaned the message by the time that actions run.
class KAVI_API ActVirusClean : public KaviAction {
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
  /// \return true. Touches nothing.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  /// Answers true and appends nothing: there are no named objects.
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;
};

/// The settings of ActVirusClean: none.
class KAVI_API uiVirusClean : public KaviAction {
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
