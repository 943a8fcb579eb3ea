// Quarantining the message.
#pragma once

#include <string>

#include "library/framework/kavi_action_n.h"

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// Has the delivery adapter file the message in a quarantine area instead of delivering it. Only
/// the first id of the list counts.
class KAVI_API ActQuarantine : public KaviActionN {
 public:
  ActQuarantine();

  /// Reads the quarantine folder. \return false when it is not set; the folder stays as it was.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Sets the id and the name of the area. Does nothing for an action without ids.
  void fillInTokenMap(Kavi::TokenMap<Kavi::ScanToken>& tokens,
                      const NamedObjMgrForScanner& namedObjects) override;
  /// Files the message, marked with the matched rule for its release, and stores its path and the
  /// area's aging days in \p tokens. \p flag is set whatever happens.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;

  /// The path under which \p msg is filed: two folder levels named for the first two characters of
  /// its id, then the id, of which 36 characters count. Cut to 519 bytes.
  /// \param path  left alone when \p msg is null
  /// \return whether \p path was set.
  static bool _genQuarantinePath(std::string& path, const OvMsgMailMessage* msg);

 private:
  bool handOver(OvMsgMailMessage* msg, Kavi::TokenMap<Kavi::ScanToken>& tokens,
                OvIsAdapter& adapter);

  static std::string s_quarantinePath;
};
