// Takes values out of one section of the settings and keeps what is wrong with them.
#pragma once

#include <string>
#include <utility>

#include "library/platform/api.h"
#include "library/platform/global_setting.h"

namespace host::core {

/// A value that is missing leaves its variable as it was. At start-up, on one thread.
class KAVI_API SectionReader {
 public:
  /// \param faults  receives one line for each fault: section, key, fault, remedy
  SectionReader(Kavi::GlobalSetting& settings, std::string section, std::string& faults)
      : settings_(settings), section_(std::move(section)), faults_(faults) {}

  /// \return whether there is one.
  bool text(const std::string& key, std::string& value);
  void number(const std::string& key, int least, int most, int& value);
  /// An absolute path.
  void path(const std::string& key, std::string& value);
  void fault(const std::string& key, const std::string& text);

 private:
  Kavi::GlobalSetting& settings_;
  std::string section_;
  std::string& faults_;
};

}  // namespace host::core
