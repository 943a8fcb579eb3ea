// Mailing suspicious parts of a message to the vendor as samples.
#pragma once

#include <string>
#include <vector>

#include "library/framework/kavi_action.h"

class OvMsgEntity;

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// Mails a copy of each entity that the heuristic scan has marked to the vendor's feedback mailbox.
/// The scanned message is not changed and stays in the stream.
class KAVI_API ActPackwatch : public KaviAction {
 public:
  /// Reads the product's folder and, from the version file in it, the versions that the subject
  /// names; without that file the subject stays general.
  /// \return false when a folder is not set.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);
  /// Where samples go: a constant of the build. Valid forever.
  static const char* feedbackAddress();

  using KaviAction::getNamedObjectIds;
  /// Accepts anything, null included: there are no settings.
  bool construct(const char* setting, unsigned int length) override;
  /// Always empty.
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Leaves \p flag alone. A list of marks that cannot be read sends nothing, which is no failure.
  /// \return false when a mail could not be handed over; the others are sent all the same.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  /// Answers true and appends nothing: there are no named objects.
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;

  /// Mails one entity. What becomes of the mail behind the hand-over is not asked.
  /// \return false, logged, when the mail could not be composed.
  static bool _do_Lurebox_Feedback(OvMsgEntity* entity, OvIsAdapter& adapter);

 private:
  static void readVersions(const std::string& path);

  static std::string s_notify_path;   ///< read, and not used further
  static std::string s_pattern_info;  ///< the subject of every mail
};

/// The settings of ActPackwatch: none.
class KAVI_API uiPackwatch : public KaviAction {
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
