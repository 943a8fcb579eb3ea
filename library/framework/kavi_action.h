// The interface of every filter action and of every settings class.
#pragma once

#include <string>
#include <vector>

#include "library/platform/api.h"
#include "library/platform/named_obj_mgr.h"
#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"

class OvIsAdapter;
class OvMsgMailMessage;

/// A filter action (`Act*`), or the settings of one (`ui*`). Built by its default constructor,
/// then by `construct`; an object whose `construct` answered false must not be used. No operation
/// throws. The order of the virtual operations is part of the binary interface.
class KAVI_API KaviAction {
 public:
  /// Type codes. They are stored with the rules: the numbers never change, and 6, 13 to 15, 17 and
  /// 19 stay unassigned.
  enum ActionType : int {
    Archive = 0,
    Delete = 1,
    Quarantine = 2,
    Readdress = 3,
    DeleteAttachment = 4,
    VirusClean = 5,
    TagSubject = 7,
    Stamp = 8,
    Bcc = 9,
    Notify = 10,
    Handoff = 11,
    Postpone = 12,
    Packwatch = 16,
    InsertXHeaderTag = 18,
    IBEDecrypt = 20,
    IBEEncrypt = 21,
    IBEReEncrypt = 22,
  };

  virtual ~KaviAction();

  /// Parses a settings string of \p length bytes. \return false if it is not one.
  virtual bool construct(const char* setting, unsigned int length) = 0;
  /// The settings string that `construct` reads; empty for an action without settings.
  virtual std::string serialize() = 0;
  virtual ActionType getType() const = 0;
  /// Whether `takeAction` needs the message as it was received.
  virtual bool requiresOriginalMsg() = 0;
  /// Puts the action's own values into the token map, before the first action of a rule runs.
  virtual void fillInTokenMap(Kavi::TokenMap<Kavi::ScanToken>& tokens,
                              const NamedObjMgrForScanner& namedObjects);
  /// Runs the action on \p msg. All arguments are borrowed.
  /// \param original  the message as received; may be null unless `requiresOriginalMsg()`
  /// \param flag      the action's own disposed flag: true says that the message has left the
  ///   stream. It counts only together with the result true.
  /// \return false when the action failed; the reason is logged.
  virtual bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                          Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                          const NamedObjMgrForScanner& namedObjects) = 0;
  virtual bool hasNamedObjects();
  /// Appends the ids of the named objects that \p setting refers to.
  virtual bool getNamedObjectIds(const std::string& setting, std::vector<unsigned int>& ids);
  /// The same for \p length characters. The base answers false: it cannot tell.
  virtual bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids);

  /// A printable name of an action type, for the log; never null. Defined by the host.
  static const char* getActionName(ActionType type);
  /// Turns the raw list of actions taken, which may be empty, into readable, localised text.
  /// Defined by the host.
  static bool CreateActionTokenString(const char* raw, std::string& out);
};
