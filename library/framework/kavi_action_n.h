// Base of the actions that refer to named objects by id.
#pragma once

#include <string>
#include <vector>

#include "library/framework/kavi_action.h"

/// An action whose settings string is a list of named-object ids ("2-7-12": two ids, 7 and 12).
/// The order of the members is part of the binary interface.
class KAVI_API KaviActionN : public KaviAction {
 public:
  ~KaviActionN() override;

  using KaviAction::getNamedObjectIds;
  /// Parses the list with the virtual `getNamedObjectIds` and appends it to the object's ids.
  /// \return false for a list that is empty, cut short or none at all; logged at level 1.
  bool construct(const char* setting, unsigned int length) override;
  /// The ids as text. No ids give "0-0", which `construct` refuses.
  std::string serialize() override;
  ActionType getType() const override;
  bool requiresOriginalMsg() override;
  /// Answers false and does nothing: the classes that derive from this one act.
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<Kavi::ScanToken>& tokens, OvIsAdapter& adapter,
                  const NamedObjMgrForScanner& namedObjects) override;
  bool hasNamedObjects() override;
  /// Appends the ids in \p setting, as far as they can be read, to \p ids. Numbers are read as
  /// strtoul reads them, any one character separates, and text behind the announced number of ids
  /// is ignored.
  bool getNamedObjectIds(const char* setting, int length, std::vector<unsigned int>& ids) override;

 protected:
  /// \param actionType  the code of the concrete class; names it in the log.
  KaviActionN(ActionType actionType, bool needsOriginal);

  std::vector<unsigned int> ids;
  ActionType type;
  bool requiresOriginal;

 private:
  friend class NameObjectAccess;  // reads and replaces the ids for the administration
};
