// Adding a stamp, such as a disclaimer, to the body of the message.
#pragma once

#include <string>

#include "library/framework/kavi_action_n.h"

class uiStampArea;

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// Inserts the text of a stamp record into the message. Only the first id of the list counts.
class KAVI_API ActStamp : public KaviActionN {
 public:
  ActStamp();

  /// Reads the settings that all stamps share; one that is missing stays as it was, except for the
  /// number of blank lines, which becomes 0. \return true.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Looks the record up and stamps the message with it. \p flag is left alone.
  /// \return false when there is no such record (logged at level 1 unless the id list is empty) or
  ///   the text cannot be inserted.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;

  /// Stamps one message. The text of the record itself gets its line breaks expanded and, with each
  /// call, another set of the blank lines that the settings ask for: a record must not be used on
  /// two threads at once.
  /// \return true when the text was inserted, when there is none, and when the message is to be
  ///   left alone (signed or TNEF); else false, logged at level 1.
  bool takeAction(OvMsgMailMessage* msg, Kavi::TokenMap<Kavi::ScanToken>& tokens,
                  uiStampArea* stamp);

  /// Divides the lines of \p text (UTF-8) that are longer than the settings allow, counted in bytes
  /// of \p charset; see library/actions/modification/long_lines.h.
  /// \return whether a line was divided; otherwise \p text is as it was.
  bool modifyIfHasLimitLine(std::string& text, const char* charset);
};
