// Inserting a header field that the administrator defines.
#pragma once

#include <string>
#include <vector>

#include "library/framework/kavi_action.h"

namespace Kavi {
class GlobalSetting;
class LogMsg;
}  // namespace Kavi

/// Sets one header field on the message. The settings string is the field: "name:value".
class KAVI_API ActInsertXHeaderTag : public KaviAction {
 public:
  /// Reads nothing. \return true.
  static bool init(Kavi::GlobalSetting& settings, Kavi::LogMsg& log);

  using KaviAction::getNamedObjectIds;
  /// Reads the settings string through uiInsertXHeaderTag, emptying both texts first.
  /// \return false if it is none: unlogged for null or length 0, else logged at level 1.
  bool construct(const char* setting, unsigned int length) override;
  /// As uiInsertXHeaderTag::serialize.
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Sets the field, its value neither token-replaced nor encoded; \p flag becomes false.
  /// \return false without a message, a top-level entity or both texts, or (logged at level 2) when
  /// the field could not be set.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  /// Answers true and appends nothing: there are no named objects.
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;

 protected:
  std::string headerName;
  std::string headerValue;
};

/// The settings of ActInsertXHeaderTag. The order of its operations is part of the binary
/// interface.
class KAVI_API uiInsertXHeaderTag : public KaviAction {
 public:
  /// Splits \p setting at its first ":" and trims spaces from both texts.
  /// \return false when it fails `_checkXHeaderTagValidation`, the texts being as they were, or
  /// when one of them comes out empty.
  bool construct(const char* setting, unsigned int length) override;
  /// Name, ":", value.
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Answers false and does nothing: settings are not run.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  /// Copies both texts. \return false, with both arguments as they were, on failure.
  virtual bool getXHeaderTag(std::string& name, std::string& value);
  /// Takes over copies of both texts unchecked. \return false, with the object as it was, on
  /// failure.
  virtual bool setXHeaderTag(std::string& name, std::string& value);

  /// Whether the text of \p length bytes, or less when a NUL comes earlier, is a settings string: 1
  /// to 512 bytes of printable ASCII with a ":".
  /// \param checked  receives the text once its length is in bounds.
  static bool _checkXHeaderTagValidation(const char* setting, int length, std::string& checked);

 protected:
  std::string headerName;
  std::string headerValue;
};
