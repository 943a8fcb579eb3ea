// Keeping a copy of the message.
#pragma once

#include <string>

#include "library/framework/kavi_action_n.h"

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// Has the delivery adapter keep a copy of the message in an archive area, next to the message's
/// delivery. Only the first id of the list counts.
class KAVI_API ActArchive : public KaviActionN {
 public:
  ActArchive();

  /// Reads the archive folder. \return false when it is not set; the folder stays as it was.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Sets the area's id, name and aging days in \p tokens and files the copy. \p flag is left
  /// alone: the message stays in the stream.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;

 private:
  static std::string s_archivePath;
};
