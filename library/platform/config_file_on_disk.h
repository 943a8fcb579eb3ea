// A settings file of "[section]" and "key=value" lines, read whole at construction.
#pragma once

#include <memory>
#include <string>

#include "library/platform/api.h"

namespace Kavi {

class KAVI_API ConfigFileOnDisk {
 public:
  /// Reads \p path (NUL-terminated). Never throws for a file that is missing or malformed:
  /// `isLoaded` then answers false.
  explicit ConfigFileOnDisk(const char* path);
  ~ConfigFileOnDisk();
  ConfigFileOnDisk(const ConfigFileOnDisk&) = delete;
  ConfigFileOnDisk& operator=(const ConfigFileOnDisk&) = delete;

  bool isLoaded() const;

  /// \param value  receives the text of \p key in \p section; left as it was when missing.
  /// \return true when found.
  bool getparam(const char* section, const char* key, std::string& value) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Kavi
