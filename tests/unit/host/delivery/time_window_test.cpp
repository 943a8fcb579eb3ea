#include "host/delivery/time_window.h"

#include <gtest/gtest.h>

namespace {

using host::delivery::TimeWindow;

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

}  // namespace
