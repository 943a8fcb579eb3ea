// A window of the day.
#pragma once

#include <cstdint>
#include <string>

#include "library/platform/api.h"

namespace host::delivery {

/// From one time of the day to another, both included, in local time. One whose end lies before
/// its begin reaches over midnight.
struct TimeWindow {
  unsigned char fromHour = 0;
  unsigned char fromMinute = 0;
  unsigned char toHour = 0;
  unsigned char toMinute = 0;

  bool operator==(const TimeWindow&) const = default;

  bool isValid() const { return fromHour < 24 && toHour < 24 && fromMinute < 60 && toMinute < 60; }

  std::string fromText() const { return text(fromHour, fromMinute); }  ///< "08:30"
  std::string toText() const { return text(toHour, toMinute); }

 private:
  static std::string text(unsigned int hour, unsigned int minute) {
    std::string out = std::to_string(hour) + ":";
    if (hour < 10) out.insert(out.begin(), '0');
    if (minute < 10) out += '0';
    return out + std::to_string(minute);
  }
};

/// The first moment at or after \p from (seconds since 1970) that lies in \p window, which is
/// valid. A day's window opens when the clock shows its begin for the first time, or, if a change
/// of the clocks leaves that out, at that change; it stays open as long as its last minute is
/// shown, the second time too. Moments that no clock shows (before 1970, behind the year 9000) are
/// open.
KAVI_API std::int64_t nextOpening(const TimeWindow& window, std::int64_t from);

}  // namespace host::delivery
