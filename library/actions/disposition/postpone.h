// Holding the message back until a time of day.
#pragma once

#include <string>
#include <vector>

#include "library/framework/kavi_action.h"

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// Has the delivery adapter hold the message back from a time of day until 23:59.
class KAVI_API ActPostpone : public KaviAction {
 public:
  /// Reads nothing. \return true.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  using KaviAction::getNamedObjectIds;
  /// Reads a record of uiPostpone. \return false, with the time as it was, if it is none.
  bool construct(const char* setting, unsigned int length) override;
  /// As uiPostpone::serialize.
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Sets \p flag first, so that it is true even when the adapter then fails. \return false when it
  /// did.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  /// Answers true and appends nothing: there are no named objects.
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;

  int hour = 0;  ///< hands its low eight bits to the adapter; no range is checked
  int min = 0;   ///< likewise
};

/// The settings of ActPostpone: a key/value record of "hour" and "min".
class KAVI_API uiPostpone : public KaviAction {
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

  int hour = 0;  ///< of the time of day; no range is checked
  int min = 0;   ///< likewise
};
