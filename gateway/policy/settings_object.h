// Building objects from settings strings.
#pragma once

#include <limits>
#include <string>

namespace gateway::policy {

/// Hands \p setting to `construct` of an action, a settings class or a record.
/// \return false also for a string that cannot travel as a C string: what stands behind a NUL
///   would be lost.
template <class Object>
bool constructFrom(Object& object, const std::string& setting) {
  if (setting.find('\0') != std::string::npos) return false;
  if (setting.size() > std::numeric_limits<unsigned int>::max()) return false;
  return object.construct(setting.c_str(), static_cast<unsigned int>(setting.size()));
}

}  // namespace gateway::policy
