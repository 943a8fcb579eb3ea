// The product's global settings from an INI file.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/core/ini_document.h"
#include "library/platform/global_setting.h"

namespace host::core {

/// Global settings, empty until loaded. Loading and overriding happen at start-up, before other
/// threads read. Nothing throws but for lack of memory in the loading operations.
class KAVI_API IniSettings final : public Kavi::GlobalSetting {
 public:
  /// Replaces the settings by those of a file; overrides stay in force.
  /// \param error  receives the faults, a line each with file, line and remedy
  /// \return false if the file cannot be read or has faults; the settings are then as they were.
  bool loadFile(const std::string& path, std::string& error);

  /// The same from a text. \param origin  what to call it in errors.
  bool loadText(std::string_view text, const std::string& origin, std::string& error);

  /// The name of every value of the file.
  std::vector<IniName> names() const { return loaded_.names(); }

  /// Sets a value that goes before what any file says.
  void override(std::string_view section, std::string_view key, std::string value);

  /// As declared; a null \p key or \p section counts as missing.
  int getString(const char* key, std::string& value, const char* section, int flags) override;
  int getInt(const char* key, int& value, const char* section, int flags) override;

 private:
  const std::string* find(const char* section, const char* key) const;

  IniDocument loaded_;
  IniDocument overrides_;
};

/// Reads a whole text as an integer: decimal with an optional "-", or "0x" and hexadecimal digits.
/// \return false, with \p value as it was, for anything else and for what does not fit.
KAVI_API bool parseInt(std::string_view text, int& value);

}  // namespace host::core
