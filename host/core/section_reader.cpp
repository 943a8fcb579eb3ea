#include "host/core/section_reader.h"

#include "host/core/ini_settings.h"

namespace host::core {

bool SectionReader::text(const std::string& key, std::string& value) {
  return settings_.getString(key.c_str(), value, section_.c_str(), 0) == 0;
}

void SectionReader::number(const std::string& key, int least, int most, int& value) {
  std::string given;
  if (!text(key, given)) return;
  int number = 0;
  if (parseInt(given, number) && number >= least && number <= most) {
    value = number;
    return;
  }
  fault(key, "'" + given + "' is not a number from " + std::to_string(least) + " to " +
                 std::to_string(most));
}

void SectionReader::path(const std::string& key, std::string& value) {
  std::string given;
  if (!text(key, given) || given.empty()) return;
  if (given.front() == '/') {
    value = given;
  } else {
    fault(key, "'" + given + "' is no absolute path (write one that begins with \"/\")");
  }
}

void SectionReader::fault(const std::string& key, const std::string& text) {
  faults_ += "[" + section_ + "] " + key + ": " + text + "\n";
}

}  // namespace host::core
