// The time zone of the test program.
#pragma once

#include <stdlib.h>

#include <ctime>
#include <stdexcept>
#include <string>

namespace testing_host {

/// Local time is that of \p zone while it lives.
class LocalZone {
 public:
  explicit LocalZone(const char* zone) {
    if (const char* present = ::getenv("TZ")) {
      before_ = present;
      hadOne_ = true;
    }
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~LocalZone() {
    if (hadOne_) {
      ::setenv("TZ", before_.c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
  }
  LocalZone(const LocalZone&) = delete;
  LocalZone& operator=(const LocalZone&) = delete;

  /// Seconds since 1970 of a local time that is shown once, "2024-03-05 08:30:00".
  static std::int64_t at(const std::string& text) {
    std::tm parts{};
    if (::strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &parts) == nullptr) {
      throw std::invalid_argument(text);
    }
    parts.tm_isdst = -1;
    return std::mktime(&parts);
  }

 private:
  std::string before_;
  bool hadOne_ = false;
};

}  // namespace testing_host
