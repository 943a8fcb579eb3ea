#include "host/delivery/time_window.h"

#include <ctime>

namespace host::delivery {

namespace {

constexpr int kMinutesPerHour = 60;

int minutesOf(int hour, int minute) { return hour * kMinutesPerHour + minute; }

}  // namespace

std::int64_t nextOpening(const TimeWindow& window, std::int64_t from) {
  const std::time_t start = from;
  std::tm local{};
  if (::localtime_r(&start, &local) == nullptr) return from;
  const int now = minutesOf(local.tm_hour, local.tm_min);
  const int begin = minutesOf(window.fromHour, window.fromMinute);
  const int end = minutesOf(window.toHour, window.toMinute);
  const bool overMidnight = end < begin;
  const bool open = overMidnight ? now >= begin || now <= end : now >= begin && now <= end;
  if (open) return from;
  if (now > begin) ++local.tm_mday;
  local.tm_hour = window.fromHour;
  local.tm_min = window.fromMinute;
  local.tm_sec = 0;
  local.tm_isdst = -1;  // the clocks may change until then
  const std::time_t opening = std::mktime(&local);
  return opening < start ? from : opening;
}

}  // namespace host::delivery
