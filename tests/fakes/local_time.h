// The clock of the test program, as far as it asks for local time.
#pragma once

#include <ctime>

namespace fakes {

/// While it lives, local time is what a test says. Plans do not nest.
class LocalTime {
 public:
  /// \param time  what `localtime_r` answers; null makes it fail. Borrowed.
  explicit LocalTime(const std::tm* time);
  ~LocalTime();
  LocalTime(const LocalTime&) = delete;
  LocalTime& operator=(const LocalTime&) = delete;
};

}  // namespace fakes
