// Quarantine area: where quarantined mail is kept, and for how long.
#pragma once

#include <string>

#include "library/platform/api.h"
#include "library/platform/kavi_named_obj.h"

/// The record of a quarantine area. Its settings string is "days:length:name:".
class KAVI_API uiQuarantineArea : public KaviNamedObj {
 public:
  std::string areaName;        ///< the value of %QUARANTINE_AREA%
  unsigned int agingDays = 0;  ///< days that a message is kept
  bool agingEnabled = false;   ///< after `construct`: true exactly when agingDays is not 0

  ~uiQuarantineArea() override;

  /// The days are stored before anything else is checked: they have changed when this fails.
  bool construct(const char* setting, unsigned int length) override;
  /// Sets the days of a record without aging to 0. \return the empty string on failure.
  std::string serialize() override;
  unsigned int getType() const override;
};
