// Stamp: a text that is added to mails, such as a disclaimer.
#pragma once

#include <string>

#include "library/platform/api.h"
#include "library/platform/kavi_named_obj.h"

/// The record of a stamp. Its settings string is "position:mode:length:text:length:text:", the
/// stamp's text first, although it stands last in the record.
class KAVI_API uiStampArea : public KaviNamedObj {
 public:
  std::string auxText;              ///< carried along; nothing here reads it
  unsigned int insertPosition = 2;  ///< 1: at the top of the body; any other: at its end
  unsigned int signedTnefMode = 1;  ///< 2: signed and TNEF messages are stamped, too
  std::string stampText;            ///< UTF-8, with tokens; the byte 3 is a line break

  ~uiStampArea() override;

  /// Neither number may be 0, nor 4294967295 or more. Fields read before a fault have changed.
  bool construct(const char* setting, unsigned int length) override;
  /// \return the empty string on failure.
  std::string serialize() override;
  unsigned int getType() const override;
};
