// Archive area: where copies of mail are kept next to their delivery.
#pragma once

#include <string>

#include "library/platform/kavi_named_obj.h"

/// The record of an archive area (record type 4). Its fields and its settings string are those of
/// a quarantine area: "days:length:name:". Defined by the host.
class KAVI_API ArchiveArea : public KaviNamedObj {
 public:
  std::string areaName;
  unsigned int agingDays = 0;  ///< days that a copy is kept
  bool agingEnabled = false;   ///< after `construct`: true exactly when agingDays is not 0

  bool construct(const char* setting, unsigned int length) override;
  std::string serialize() override;
  unsigned int getType() const override;
};
