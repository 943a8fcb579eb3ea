#include "host/delivery/time_window.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <ostream>
#include <vector>

#include "tests/unit/host/delivery/local_zone.h"

namespace {

using host::delivery::nextOpening;
using host::delivery::TimeWindow;
using testing_host::LocalZone;

constexpr TimeWindow kMorning{8, 30, 9, 0};
constexpr TimeWindow kFromHalfPastEight{8, 30, 23, 59};
constexpr TimeWindow kNight{22, 0, 5, 0};
constexpr char kCentralEurope[] = "CET-1CEST,M3.5.0,M10.5.0/3";

std::int64_t at(const std::string& text) { return LocalZone::at(text); }

TEST(TimeWindow, PrintsTwoDigitsEach) {
  const TimeWindow window{8, 5, 23, 59};
  EXPECT_EQ(window.fromText(), "08:05");
  EXPECT_EQ(window.toText(), "23:59");
  EXPECT_EQ(TimeWindow{}.fromText(), "00:00");
}

TEST(TimeWindow, KnowsTheDay) {
  EXPECT_TRUE((TimeWindow{0, 0, 23, 59}.isValid()));
  EXPECT_TRUE((TimeWindow{22, 0, 6, 0}.isValid()));
  EXPECT_FALSE((TimeWindow{24, 0, 23, 59}.isValid()));
  EXPECT_FALSE((TimeWindow{0, 60, 23, 59}.isValid()));
  EXPECT_FALSE((TimeWindow{0, 0, 255, 59}.isValid()));
  EXPECT_FALSE((TimeWindow{0, 0, 23, 60}.isValid()));
}

struct Case {
  const char* name;
  const char* zone;
  TimeWindow window;
  const char* from;
  const char* opening;  // "now": at once
};

void PrintTo(const Case& tested, std::ostream* out) { *out << tested.name; }

class NextOpening : public ::testing::TestWithParam<Case> {};

TEST_P(NextOpening, IsNowOrTheNextBegin) {
  const LocalZone zone(GetParam().zone);
  const std::int64_t from = at(GetParam().from);
  const std::string opening = GetParam().opening;
  EXPECT_EQ(nextOpening(GetParam().window, from), opening == "now" ? from : at(opening));
}

const Case kCases[] = {
    {"Before", "UTC", kFromHalfPastEight, "2024-03-05 07:00:01", "2024-03-05 08:30:00"},
    {"OneSecondBefore", "UTC", kFromHalfPastEight, "2024-03-05 08:29:59", "2024-03-05 08:30:00"},
    {"AtTheBegin", "UTC", kFromHalfPastEight, "2024-03-05 08:30:00", "now"},
    {"LastSecond", "UTC", kFromHalfPastEight, "2024-03-05 23:59:59", "now"},
    {"Midnight", "UTC", kFromHalfPastEight, "2024-03-06 00:00:00", "2024-03-06 08:30:00"},
    {"LeapDay", "UTC", kMorning, "2024-02-28 09:01:00", "2024-02-29 08:30:00"},
    {"BehindLeapDay", "UTC", kMorning, "2024-02-29 09:01:00", "2024-03-01 08:30:00"},
    {"NewYear", "UTC", kMorning, "2024-12-31 12:00:00", "2025-01-01 08:30:00"},
    {"EndIncluded", "UTC", kMorning, "2024-03-05 09:00:59", "now"},
    {"LastMinuteOfTheDay", "UTC", {23, 59, 23, 59}, "2024-03-05 23:58:59", "2024-03-05 23:59:00"},
    {"InsideLastMinute", "UTC", {23, 59, 23, 59}, "2024-03-05 23:59:59", "now"},
    {"BehindLastMinute", "UTC", {23, 59, 23, 59}, "2024-03-06 00:00:00", "2024-03-06 23:59:00"},
    {"FirstMinuteOfTheDay", "UTC", {0, 0, 0, 0}, "2024-03-05 00:01:00", "2024-03-06 00:00:00"},
    {"FromMidnight", "UTC", {0, 0, 23, 59}, "2024-03-05 00:00:00", "now"},
    {"OverMidnightEvening", "UTC", kNight, "2024-03-05 23:00:00", "now"},
    {"OverMidnightMorning", "UTC", kNight, "2024-03-05 04:00:00", "now"},
    {"OverMidnightDay", "UTC", kNight, "2024-03-05 05:01:00", "2024-03-05 22:00:00"},
    {"FarEast", "XXX-14", kMorning, "2024-03-05 08:29:00", "2024-03-05 08:30:00"},
    {"FarWest", "XXX+12", kMorning, "2024-03-05 09:01:00", "2024-03-06 08:30:00"},
    {"OddZone", "XXX-5:45", kMorning, "2024-03-05 00:10:00", "2024-03-05 08:30:00"},
    // Summer time begins on 2024-03-31: 02:00 to 02:59 are not shown.
    {"SkippedBegin", kCentralEurope, {2, 30, 23, 59}, "2024-03-31 01:59:59", "2024-03-31 03:00:00"},
    {"SkippedWindow", kCentralEurope, {2, 10, 2, 40}, "2024-03-30 20:00:00", "2024-04-01 02:10:00"},
    {"SkippedEnd", kCentralEurope, {1, 30, 2, 30}, "2024-03-31 03:00:00", "2024-04-01 01:30:00"},
    {"OverTheSkip", kCentralEurope, kMorning, "2024-03-30 20:00:00", "2024-03-31 08:30:00"},
    // Winter time begins on 2024-10-27: 02:00 to 02:59 are shown twice.
    {"OverTheDouble", kCentralEurope, kMorning, "2024-10-26 20:00:00", "2024-10-27 08:30:00"},
    {"BehindTheDouble",
     kCentralEurope,
     {1, 0, 2, 59},
     "2024-10-27 03:00:00",
     "2024-10-28 01:00:00"},
};

INSTANTIATE_TEST_SUITE_P(All, NextOpening, ::testing::ValuesIn(kCases),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(NextOpeningTwice, OpensWhenItsBeginIsShownFirst) {
  const LocalZone zone(kCentralEurope);
  const std::int64_t first = at("2024-10-27 01:30:00") + 3600;  // 02:30 summer time
  const TimeWindow window{2, 30, 23, 59};
  EXPECT_EQ(nextOpening(window, first - 1800), first);
  // 02:10 for the second time, when it has been open for forty minutes.
  EXPECT_EQ(nextOpening(window, first + 2400), first + 2400);
  // A last minute that is shown twice counts twice.
  const TimeWindow early{1, 0, 2, 30};
  EXPECT_EQ(nextOpening(early, first + 3600 + 59), first + 3600 + 59);
  EXPECT_EQ(nextOpening(early, first + 3600 + 60), at("2024-10-28 01:00:00"));
  // One that is shown once does not.
  const TimeWindow before{1, 0, 1, 59};
  EXPECT_EQ(nextOpening(before, at("2024-10-27 01:59:59") + 1), at("2024-10-28 01:00:00"));
}

TEST(NextOpeningEdges, WhatIsNoTimeIsOpen) {
  for (const std::int64_t time :
       {std::numeric_limits<std::int64_t>::min(), std::int64_t{-1},
        std::numeric_limits<std::int64_t>::max(), std::int64_t{1} << 40}) {
    EXPECT_EQ(nextOpening(kMorning, time), time);
  }
}

TEST(NextOpeningEdges, ANewZoneCountsAtOnce) {
  const LocalZone utc("UTC");
  const std::int64_t time = at("2024-03-05 08:00:00");
  EXPECT_EQ(nextOpening(kMorning, time), time + 1800);
  ::setenv("TZ", "XXX-1", 1);  // it is nine there
  EXPECT_EQ(nextOpening(kMorning, time), time);
}

// What the clock shows in each minute around a change, looked at one by one.
class Clock {
 public:
  Clock(std::int64_t begin, std::int64_t end) : begin_(begin) {
    for (std::int64_t time = begin; time < end; time += 60) {
      const std::time_t moment = time;
      std::tm local{};
      ::localtime_r(&moment, &local);
      shown_.push_back(time + local.tm_gmtoff);
    }
  }

  // The first minute at or after `from` that lies in the window of some day.
  std::int64_t opening(const TimeWindow& window, std::int64_t from) const {
    const std::int64_t begin = window.fromHour * 3600 + window.fromMinute * 60;
    std::int64_t end = window.toHour * 3600 + window.toMinute * 60;
    if (end < begin) end += 86'400;
    for (std::int64_t day = shown_.front() / 86'400 * 86'400; day < shown_.back(); day += 86'400) {
      std::optional<std::int64_t> opens;
      std::int64_t closes = 0;
      for (std::size_t i = 0; i < shown_.size(); ++i) {
        const std::int64_t time = begin_ + static_cast<std::int64_t>(i) * 60;
        if (!opens && shown_[i] >= day + begin) opens = time;
        if (shown_[i] <= day + end) closes = time + 60;
      }
      if (opens && *opens < closes && from < closes) return std::max(from, *opens);
    }
    return -1;
  }

 private:
  std::int64_t begin_;
  std::vector<std::int64_t> shown_;
};

struct Change {
  const char* zone;
  const char* near;
};

TEST(NextOpeningChanges, AreAsTheClockShowsThem) {
  const Change changes[] = {
      {kCentralEurope, "2024-03-31 12:00:00"},
      {kCentralEurope, "2024-10-27 12:00:00"},
      {"AAA3BBB,M10.3.0/0,M2.3.0/0", "2024-02-18 12:00:00"},      // midnight is left out, or
      {"AAA3BBB,M10.3.0/0,M2.3.0/0", "2024-10-20 12:00:00"},      // the hour before it comes twice
      {"AAA-10:30BBB-11,M10.1.0,M4.1.0", "2024-04-07 12:00:00"},  // half an hour
      {"AAA-10:30BBB-11,M10.1.0,M4.1.0", "2024-10-06 12:00:00"},
  };
  const TimeWindow windows[] = {{0, 0, 0, 30},   {2, 0, 2, 59},   {2, 30, 23, 59}, {1, 59, 2, 0},
                                {23, 0, 23, 59}, {23, 30, 0, 10}, {22, 0, 2, 30},  {1, 40, 1, 50}};
  for (const Change& change : changes) {
    const LocalZone zone(change.zone);
    const std::int64_t middle = at(change.near);
    const Clock clock(middle - 3 * 86'400, middle + 5 * 86'400);
    for (const TimeWindow& window : windows) {
      for (std::int64_t from = middle - 86'400; from < middle + 86'400; from += 17 * 60) {
        ASSERT_EQ(nextOpening(window, from), clock.opening(window, from))
            << change.zone << " " << change.near << " " << window.fromText() << "-"
            << window.toText() << " from " << from;
      }
    }
  }
}

}  // namespace
