#include "gateway/milter/answer_marks.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "host/delivery/digest.h"

namespace gateway::milter {
namespace {

namespace fs = std::filesystem;

class AnswerMarksTest : public testing::Test {
 protected:
  AnswerMarksTest() {
    std::string name = fs::temp_directory_path() / "answer_marks.XXXXXX";
    folder_ = std::string(::mkdtemp(name.data())) + "/answers";
  }
  ~AnswerMarksTest() override { fs::remove_all(fs::path(folder_).parent_path()); }

  static host::store::Digest digest(unsigned char byte) {
    host::store::Digest made{};
    made[0] = byte;
    return made;
  }
  bool isMarked(unsigned char byte) const {
    return fs::exists(fs::path(folder_) / host::delivery::toHex(digest(byte)));
  }

  std::string folder_;
};

TEST_F(AnswerMarksTest, AMarkThatWasLeftIsTheNextProcessesToTell) {
  AnswerMarks killed;
  ASSERT_EQ(killed.open(folder_), "");
  EXPECT_FALSE(killed.begin(digest(1)));
  AnswerMarks next;
  ASSERT_EQ(next.open(folder_), "");
  EXPECT_FALSE(next.begin(digest(2)));
  EXPECT_TRUE(next.begin(digest(1)));
  EXPECT_FALSE(next.begin(digest(1))) << "told once";
}

TEST_F(AnswerMarksTest, AnAnswerThatMayBeUnreadIsToldInTheSameProcess) {
  AnswerMarks marks;
  ASSERT_EQ(marks.open(folder_), "");
  marks.begin(digest(1));
  marks.leave(digest(1));
  marks.endAll();
  EXPECT_TRUE(isMarked(1));
  EXPECT_TRUE(marks.begin(digest(1)));
  marks.end(digest(1));
  EXPECT_FALSE(isMarked(1));
  EXPECT_FALSE(marks.begin(digest(1))) << "the second answer was read";
}

TEST_F(AnswerMarksTest, TheFirstMarksGoWhenTooManyAreLeft) {
  AnswerMarks marks;
  ASSERT_EQ(marks.open(folder_), "");
  const auto numbered = [](std::size_t number) {
    host::store::Digest made = digest(static_cast<unsigned char>(number & 0xFF));
    made[1] = static_cast<unsigned char>(number >> 8);
    return made;
  };
  for (std::size_t number = 0; number <= AnswerMarks::kMostLeft; ++number) {
    marks.begin(numbered(number));
    marks.leave(numbered(number));
  }
  const auto files = std::distance(fs::directory_iterator(folder_), fs::directory_iterator());
  EXPECT_EQ(static_cast<std::size_t>(files), AnswerMarks::kMostLeft);
  EXPECT_FALSE(isMarked(0));
  EXPECT_TRUE(marks.begin(numbered(1)));
}

TEST_F(AnswerMarksTest, AnAnswerThatIsOutLeavesNothing) {
  AnswerMarks marks;
  ASSERT_EQ(marks.open(folder_), "");
  for (unsigned char byte = 1; byte <= 3; ++byte) marks.begin(digest(byte));
  EXPECT_TRUE(isMarked(1));
  marks.end(digest(1));
  EXPECT_FALSE(isMarked(1));
  marks.endAll();
  EXPECT_FALSE(isMarked(2));
  EXPECT_FALSE(isMarked(3));
}

TEST_F(AnswerMarksTest, AMessageThatWasAnsweredIsKnownForAWhile) {
  AnswerMarks marks;
  ASSERT_EQ(marks.open(folder_), "");
  marks.begin(digest(1));
  EXPECT_FALSE(marks.wasAnswered(digest(1)));
  marks.end(digest(1));
  EXPECT_FALSE(marks.begin(digest(1)));
  EXPECT_TRUE(marks.wasAnswered(digest(1)));
  EXPECT_FALSE(marks.wasAnswered(digest(2)));
}

TEST(RecentNamesTest, TheFirstGoesForOneTooMany) {
  RecentNames names(2);
  EXPECT_FALSE(names.keep("a"));
  EXPECT_FALSE(names.keep("b"));
  EXPECT_FALSE(names.keep("a")) << "the last one again";
  EXPECT_EQ(names.keep("c"), "b");
  EXPECT_TRUE(names.take("a"));
  EXPECT_FALSE(names.take("a"));
}

TEST(RecentNamesTest, OldOnesDoNotCount) {
  using namespace std::chrono_literals;
  RecentNames names(2);
  const auto now = RecentNames::Clock::now();
  names.keep("a", now);
  EXPECT_TRUE(names.holds("a", 10s, now + 10s));
  EXPECT_FALSE(names.holds("a", 10s, now + 11s));
  names.keep("a", now + 5s);
  EXPECT_TRUE(names.holds("a", 10s, now + 11s));
  EXPECT_FALSE(names.holds("b", 10s, now));
}

TEST_F(AnswerMarksTest, AProperEndLeavesTheMarksOfOthers) {
  AnswerMarks killed;
  ASSERT_EQ(killed.open(folder_), "");
  killed.begin(digest(1));
  AnswerMarks proper;
  ASSERT_EQ(proper.open(folder_), "");
  proper.endAll();
  EXPECT_TRUE(isMarked(1));
}

TEST_F(AnswerMarksTest, OldMarksAreForgotten) {
  AnswerMarks killed;
  ASSERT_EQ(killed.open(folder_), "");
  killed.begin(digest(1));
  fs::last_write_time(fs::path(folder_) / host::delivery::toHex(digest(1)),
                      fs::file_time_type::clock::now() - std::chrono::hours(24 * 31));
  AnswerMarks next;
  ASSERT_EQ(next.open(folder_), "");
  EXPECT_FALSE(next.begin(digest(1)));
}

TEST_F(AnswerMarksTest, AFolderThatCannotBeMadeIsNamed) {
  AnswerMarks marks;
  EXPECT_NE(marks.open("/proc/none/answers").find("/proc/none/answers: "), std::string::npos);
}

}  // namespace
}  // namespace gateway::milter
