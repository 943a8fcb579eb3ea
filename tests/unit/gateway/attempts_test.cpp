#include "gateway/cli/attempts.h"

#include <gtest/gtest.h>

namespace {

using gateway::cli::Attempts;

TEST(Attempts, TriesOnceWithoutAnyPatience) {
  Attempts attempts(std::chrono::seconds(0));
  ASSERT_TRUE(attempts.next());
  EXPECT_TRUE(attempts.isFirst());
  EXPECT_FALSE(attempts.next());
  EXPECT_FALSE(attempts.next());
}

TEST(Attempts, GoesOnUntilThePatienceIsUsedUp) {
  const auto begun = std::chrono::steady_clock::now();
  const std::chrono::milliseconds patience(20);
  unsigned int count = 0;
  for (Attempts attempts(patience); attempts.next(); ++count) {
    EXPECT_EQ(attempts.isFirst(), count == 0);
  }
  EXPECT_GT(count, 1u);
  EXPECT_GE(std::chrono::steady_clock::now() - begun, patience);
}

TEST(Attempts, HasThePatienceThatTheManualTells) {
  EXPECT_EQ(Attempts::kPatience, std::chrono::seconds(30));
}

}  // namespace
