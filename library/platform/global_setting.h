// The product's global settings.
#pragma once

#include <string>

#include "library/platform/api.h"

namespace Kavi {

/// Global settings by key and section. Read at start-up only; reading does not change it.
class KAVI_API GlobalSetting {
 public:
  virtual ~GlobalSetting() = default;

  /// \param value  receives the text; left as it was when the key is missing.
  /// \param flags  reserved, 0.
  /// \return 0 when the key was found, non-zero when it is missing.
  virtual int getString(const char* key, std::string& value, const char* section, int flags) = 0;

  /// The same for an integer (decimal, or hexadecimal with "0x"); a text that is no integer or
  /// does not fit counts as missing.
  virtual int getInt(const char* key, int& value, const char* section, int flags) = 0;
};

}  // namespace Kavi
