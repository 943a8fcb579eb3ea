// Deleting attachments, or with them the whole message.
#pragma once

#include <string>
#include <vector>

#include "library/framework/kavi_action.h"

class OvMsgEntity;

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

namespace library {

/// Whether \p entity, which may be null, is an attachment: it has a file name, or its
/// Content-Disposition is "attachment", letter for letter.
bool _isAttachment(OvMsgEntity* entity);

/// Whether \p entity, which may be null, is a message of its own, read or not.
bool _isMsgAttachment(OvMsgEntity* entity);

}  // namespace library

/// Removes the entities that the scanner has marked, every attachment, or the message as a whole;
/// the token map says which. The settings string is "T" for every attachment, else "F".
class KAVI_API ActDeleteAttachment : public KaviAction {
 public:
  /// Reads nothing. \return true.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  using KaviAction::getNamedObjectIds;
  /// Looks at the first character alone, whatever the length. \return false for null only.
  bool construct(const char* setting, unsigned int length) override;
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// \p flag becomes true when the whole message was deleted; else it is left alone. Once the token
  /// map asks for every attachment, the object deletes every attachment of later messages, too.
  /// \return false when the whole message, or the last of the entities, could not be removed.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  /// Answers true and appends nothing: there are no named objects.
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;

 protected:
  bool deleteAll = false;
};

/// The administration side of ActDeleteAttachment; has no settings.
class KAVI_API uiDeleteAttachment : public KaviAction {
 public:
  using KaviAction::getNamedObjectIds;
  /// Accepts anything.
  bool construct(const char* setting, unsigned int length) override;
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
