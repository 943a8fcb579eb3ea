// Putting a tag in front of the subject.
#pragma once

#include <string>
#include <vector>

#include "library/framework/kavi_action.h"

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// Tags the subject of the message. The settings string is "T" or "F", whether signed messages are
/// tagged, too, followed by the tag, UTF-8 with tokens. The order of the operations is part of the
/// binary interface.
class KAVI_API ActTagSubject : public KaviAction {
 public:
  /// Reads the settings that all subject tags share; a missing one stays as it was. \return true.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  using KaviAction::getNamedObjectIds;
  /// Reads the settings string through uiTagSubject.
  bool construct(const char* setting, unsigned int length) override;
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Puts the tag in front of every Subject field, or adds one; \p flag becomes false. The tagged
  /// subject becomes the value of %SUBJECT%. What cannot be converted is left as it is.
  /// \return false when a field cannot be written.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  /// Answers true and appends nothing: there are no named objects.
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;
  /// As those of uiTagSubject.
  virtual int setTagSubjectAction(bool tagSigned, const char* tag);
  virtual int getTagSubjectAction(bool& tagSigned, std::string& tag);

 private:
  static bool s_tagDirectly;
  static bool s_tagNotEncoding;

 protected:
  bool tagSignedToo = false;
  std::string tagText;
};

/// The settings of ActTagSubject. The order of its operations is part of the binary interface.
class KAVI_API uiTagSubject : public KaviAction {
 public:
  /// \return false, with the object as it was, for null and for fewer than two bytes: there is
  ///   always a tag.
  bool construct(const char* setting, unsigned int length) override;
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Answers false and does nothing: settings are not run.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  /// Copies the settings into the object; a null tag is the empty one.
  /// \return 0; -1, with the object as it was, when there is no memory.
  virtual int setTagSubjectAction(bool tagSigned, const char* tag);
  /// Copies the settings out of the object.
  /// \return 0; -1, with both arguments as they were, when there is no memory.
  virtual int getTagSubjectAction(bool& tagSigned, std::string& tag);

 protected:
  bool tagSignedToo = false;
  std::string tagText;
};
