#include "host/delivery/spool_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace host::delivery;
using Kind = SpoolEvent::Kind;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

SpoolState stateOf(const std::string& log) { return SpoolState::of(parseSpoolLog(log)); }

TEST(SpoolEvent, IsReadAsItWasWritten) {
  const SpoolEvent events[] = {
      {Kind::Attempt, 100, 0, "", 0, false},
      {Kind::Deferred, 101, 60, "mx:25: refused for now: 450 \"busy\" \\", 161, false},
      {Kind::Deferred, 101, 53, "lost", 161, true},
      {Kind::Failed, 102, 63, "caf\xC3\xA9", 0, false},
      {Kind::Retry, 103, 0, "", 0, false},
      {Kind::Sent, 104, 0, "", 0, false},
  };
  std::string log;
  for (const SpoolEvent& event : events) log += writeSpoolEvent(event) + "\n";
  EXPECT_EQ(parseSpoolLog(log), std::vector<SpoolEvent>(std::begin(events), std::end(events)));
}

TEST(SpoolEvent, LinesThatAreNoneArePassedOver) {
  const std::string good = writeSpoolEvent({Kind::Attempt, 5, 0, "", 0, false});
  const std::string lines[] = {
      "",
      "{",
      "null",
      "[]",
      "{}",
      "text",
      good.substr(0, good.size() - 1),
      good + "x",
      R"({"event": "other", "at": 1})",
      R"({"event": 1})",
      R"({"event": ["attempt"]})",
      R"({"event": "attempt", "deep": {"event": "sent"}})",
      std::string(100'000, '['),
      "{\"event\": \"attempt\", \"text\": \"" + std::string(20'000, 'x') + "\"}"};
  for (const std::string& line : lines) {
    EXPECT_THAT(parseSpoolLog(line), IsEmpty()) << line.substr(0, 80);
    // One that was cut off gets its line break from whoever writes next.
    EXPECT_EQ(parseSpoolLog(line + "\n" + good + "\n").size(), 1u) << line.substr(0, 80);
  }
}

TEST(SpoolState, CountsAttempts) {
  const SpoolState state = stateOf(R"({"at": 1, "event": "attempt"}
{"at": 2, "event": "deferred", "code": 60, "text": "busy", "due": 62}
{"at": 62, "event": "attempt"}
{"at": 63, "event": "deferred", "code": 54, "text": "late", "due": 183}
)");
  EXPECT_EQ(state.attempts, 2u);
  EXPECT_EQ(state.recentAttempts, 2u);
  EXPECT_EQ(state.due, 183);
  EXPECT_EQ(state.code, 54u);
  EXPECT_EQ(state.text, "late");
  EXPECT_FALSE(state.failed);
  EXPECT_FALSE(state.isPossiblyDoubled());
}

TEST(SpoolState, FailsAndIsRetried) {
  std::string log = R"({"at": 1, "event": "attempt"}
{"at": 2, "event": "failed", "code": 61, "text": "no"}
)";
  EXPECT_TRUE(stateOf(log).failed);
  log += R"({"at": 50, "event": "retry"})";
  const SpoolState state = stateOf(log);
  EXPECT_FALSE(state.failed);
  EXPECT_EQ(state.due, 50);
  EXPECT_EQ(state.attempts, 1u);
  EXPECT_EQ(state.recentAttempts, 0u);
  EXPECT_EQ(state.text, "no");
}

TEST(SpoolState, RemembersThatAMessageMayBeDoubled) {
  const std::string attempt = "{\"at\": 1, \"event\": \"attempt\"}\n";
  const std::string deferred = "{\"at\": 2, \"event\": \"deferred\"}\n";
  const std::string unsure = "{\"at\": 2, \"event\": \"deferred\", \"uncertain\": 1}\n";
  EXPECT_FALSE(stateOf("").isPossiblyDoubled());
  EXPECT_TRUE(stateOf(attempt).isPossiblyDoubled());
  EXPECT_FALSE(stateOf(attempt + deferred).isPossiblyDoubled());
  EXPECT_TRUE(stateOf(attempt + unsure).isPossiblyDoubled());
  EXPECT_TRUE(stateOf(attempt + unsure + attempt + deferred).isPossiblyDoubled());
  EXPECT_TRUE(stateOf(attempt + attempt + deferred).isPossiblyDoubled());
  // The line that says how it ended was cut off.
  EXPECT_TRUE(stateOf(attempt + deferred.substr(0, 20)).isPossiblyDoubled());
}

TEST(RetrySchedule, PausesGrow) {
  const RetrySchedule schedule{60, 3600, 1000};
  std::vector<std::int64_t> pauses;
  for (unsigned int attempt = 1; attempt <= 9; ++attempt) {
    pauses.push_back(schedule.pauseAfter(attempt));
  }
  EXPECT_THAT(pauses, ElementsAre(60, 120, 240, 480, 960, 1920, 3600, 3600, 3600));
  EXPECT_EQ(schedule.pauseAfter(4'000'000'000u), 3600);
  EXPECT_EQ((RetrySchedule{100, 10, 0}.pauseAfter(1)), 10);
}

SpoolEntry waitingSince(std::int64_t queued, const TimeWindow& window = kAnyTime) {
  SpoolEntry entry;
  entry.queuedAt = queued;
  entry.window = window;
  return entry;
}

TEST(DueTime, FollowsTheLog) {
  const RetrySchedule schedule{60, 3600, 1000};
  const SpoolEntry entry = waitingSince(1000);
  EXPECT_EQ(dueTime(entry, {}, schedule, 5000), 1000);
  SpoolState state;
  state.due = 2000;
  EXPECT_EQ(dueTime(entry, state, schedule, 1500), 2000);
  EXPECT_EQ(dueTime(entry, state, schedule, 5000), 2000);
  // Cut off in the middle of its second attempt.
  state.open = true;
  state.lastAttempt = 2500;
  state.recentAttempts = 2;
  EXPECT_EQ(dueTime(entry, state, schedule, 5000), 2620);
  // An administrator looked at it since.
  state.apply({SpoolEvent::Kind::Retry, 2510, 0, {}, 0, false});
  EXPECT_EQ(dueTime(entry, state, schedule, 5000), 2510);
}

// Everything was written down by a clock that was set back since.
TEST(DueTime, IsNotPutOffByAClockThatWasAhead) {
  const RetrySchedule schedule{60, 3600, 1000};
  constexpr std::int64_t kYear = 365 * 86'400;
  EXPECT_EQ(dueTime(waitingSince(kYear), {}, schedule, 1000), 1000);
  SpoolState deferred;
  deferred.apply({SpoolEvent::Kind::Attempt, kYear, 0, {}, 0, false});
  EXPECT_EQ(dueTime(waitingSince(500), deferred, schedule, 1000), 500);
  EXPECT_EQ(dueTime(waitingSince(500), deferred, schedule, kYear), kYear + 60);
  deferred.apply({SpoolEvent::Kind::Deferred, kYear, 1, {}, kYear + 60, false});
  EXPECT_EQ(dueTime(waitingSince(500), deferred, schedule, 1000), 500);
  EXPECT_EQ(dueTime(waitingSince(500), deferred, schedule, kYear), kYear + 60);
  SpoolState asked;
  asked.apply({SpoolEvent::Kind::Retry, kYear, 0, {}, 0, false});
  EXPECT_EQ(dueTime(waitingSince(500), asked, schedule, 1000), 500);
}

TEST(SpoolState, CountsFromTheFirstAttemptSinceTheLastRetry) {
  SpoolState state;
  EXPECT_EQ(state.firstAttempt, 0);
  for (const std::int64_t at : {100, 200}) {
    state.apply({SpoolEvent::Kind::Attempt, at, 0, {}, 0, false});
    state.apply({SpoolEvent::Kind::Deferred, at + 1, 1, {}, at + 50, false});
  }
  EXPECT_EQ(state.firstAttempt, 100);
  state.apply({SpoolEvent::Kind::Retry, 300, 0, {}, 0, false});
  EXPECT_EQ(state.firstAttempt, 0);
  state.apply({SpoolEvent::Kind::Attempt, 400, 0, {}, 0, false});
  EXPECT_EQ(state.firstAttempt, 400);
}

}  // namespace
