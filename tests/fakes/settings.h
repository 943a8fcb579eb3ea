// Global settings in memory.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "library/platform/global_setting.h"

namespace fakes {

/// Holds what a test puts in, and writes down every lookup as "getString section/key".
class Settings : public Kavi::GlobalSetting {
 public:
  void set(const std::string& section, const std::string& key, const std::string& value);

  int getString(const char* key, std::string& value, const char* section, int flags) override;
  int getInt(const char* key, int& value, const char* section, int flags) override;

  const std::vector<std::string>& lookups() const { return lookups_; }

 private:
  const std::string* find(const char* kind, const char* section, const char* key, int flags);

  std::map<std::pair<std::string, std::string>, std::string> values_;
  std::vector<std::string> lookups_;
};

}  // namespace fakes
