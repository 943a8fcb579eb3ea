#include "host/delivery/time_window.h"

#include <algorithm>
#include <ctime>

namespace host::delivery {

namespace {

constexpr std::int64_t kMinute = 60;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;
constexpr std::int64_t kLatest = kDay * 366 * 8000;  // what lies beyond is no time of a clock
constexpr TimeWindow kWholeDay{0, 0, 23, 59};

// How far local time is ahead of UTC at a moment, in seconds.
std::int64_t offsetAt(std::int64_t moment) {
  const std::time_t time = moment;
  std::tm local{};
  return ::localtime_r(&time, &local) == nullptr ? 0 : local.tm_gmtoff;
}

enum class Which { First, Last };  // of two moments at which the clock shows the same

struct Moment {
  std::int64_t at = 0;
  bool isShown = true;  // false: a change of the clocks leaves it out, and `at` is that change
};

// When the local clock shows `local` (the seconds that would have passed since 1970 if the zone
// were UTC). There is one change in two days at most.
Moment momentOf(std::int64_t local, Which which) {
  const std::int64_t before = offsetAt(local - kDay);
  const std::int64_t behind = offsetAt(local + kDay);
  const std::int64_t byBefore = local - before;
  const std::int64_t byBehind = local - behind;
  const bool early = offsetAt(byBefore) == before;
  const bool late = offsetAt(byBehind) == behind;
  if (early && late) {
    return {which == Which::First ? std::min(byBefore, byBehind) : std::max(byBefore, byBehind)};
  }
  if (early || late) return {early ? byBefore : byBehind};
  std::int64_t least = std::min(byBefore, byBehind);
  std::int64_t most = std::max(byBefore, byBehind);
  while (most - least > 1) {
    const std::int64_t middle = least + (most - least) / 2;
    (offsetAt(middle) == behind ? most : least) = middle;
  }
  return {most, false};
}

}  // namespace

std::int64_t nextOpening(const TimeWindow& window, std::int64_t from) {
  if (window == kWholeDay || from < 0 || from > kLatest) return from;
  ::tzset();  // the zone may have been changed since
  const std::int64_t begin = window.fromHour * kHour + window.fromMinute * kMinute;
  std::int64_t end = window.toHour * kHour + window.toMinute * kMinute;
  if (end < begin) end += kDay;
  const std::int64_t today = (from + offsetAt(from)) / kDay * kDay;
  // From yesterday, whose window may reach over midnight, to the first day that has one again.
  for (std::int64_t day = today - kDay; day <= today + 3 * kDay; day += kDay) {
    const std::int64_t opens = momentOf(day + begin, Which::First).at;
    const Moment last = momentOf(day + end, Which::Last);
    const std::int64_t closes = last.isShown ? last.at + kMinute : last.at;
    if (from < closes && opens < closes) return std::max(from, opens);
  }
  return from;
}

}  // namespace host::delivery
