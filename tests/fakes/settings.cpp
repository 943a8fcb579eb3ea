#include "tests/fakes/settings.h"

#include "tests/fakes/fault_plan.h"

namespace fakes {

void Settings::set(const std::string& section, const std::string& key, const std::string& value) {
  values_[{section, key}] = value;
}

const std::string* Settings::find(const char* kind, const char* section, const char* key,
                                  int flags) {
  const Unswept unswept;
  std::string line = std::string(kind) + " " + section + "/" + key;
  if (flags != 0) {
    line += " flags " + std::to_string(flags);
  }
  lookups_.push_back(line);
  const auto entry = values_.find({section, key});
  return entry == values_.end() ? nullptr : &entry->second;
}

int Settings::getString(const char* key, std::string& value, const char* section, int flags) {
  const bool fails = platformCallFails();
  const std::string* found = find("getString", section, key, flags);
  if (fails || found == nullptr) {
    return 1;
  }
  value = *found;
  return 0;
}

int Settings::getInt(const char* key, int& value, const char* section, int flags) {
  const bool fails = platformCallFails();
  const std::string* found = find("getInt", section, key, flags);
  if (fails || found == nullptr) {
    return 1;
  }
  const Unswept unswept;
  value = std::stoi(*found);
  return 0;
}

}  // namespace fakes
