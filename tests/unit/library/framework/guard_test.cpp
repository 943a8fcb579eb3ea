#include "library/framework/guard.h"

#include <stdexcept>

#include "tests/unit/library/library_test.h"

namespace {

class GuardTest : public LibraryTest {};

TEST_F(GuardTest, AnswersWhatTheBodyAnswers) {
  EXPECT_EQ(library::guarded("Op", 7, [] { return 3; }), 3);
  EXPECT_EQ(library::guarded("Op", std::string(), [] { return std::string("text"); }), "text");
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(GuardTest, TurnsAnExceptionIntoTheFailureResultAndLogsTheReason) {
  EXPECT_EQ(library::guarded("Op", 7, []() -> int { throw std::runtime_error("why"); }), 7);
  EXPECT_EQ(log.takeLines(), (fakes::LogLines{{1, "Op failed: why"}}));
}

TEST_F(GuardTest, KnowsExceptionsOfAnyType) {
  EXPECT_FALSE(library::guarded("Op", false, []() -> bool { throw "text"; }));
  EXPECT_EQ(log.takeLines(), (fakes::LogLines{{1, "Op failed: unknown exception"}}));
}

}  // namespace
