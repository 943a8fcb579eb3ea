#include "gateway/milter/answer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace gateway::milter {
namespace {

using testing::HasSubstr;

TEST(AnswerTest, ATemporaryFailureNamesTheMessage) {
  const Answer answer = Answer::tempFail("4Xyz1", "Later");
  EXPECT_EQ(answer.text, "Later (4Xyz1)");
  EXPECT_STREQ(answer.code(), "451");
  EXPECT_THAT(Answer::tempFail("4Xyz1").text, HasSubstr("(4Xyz1)"));
  EXPECT_EQ(Answer::tempFail("", "Later").text, "Later");
}

TEST(AnswerTest, ARejectionIsPermanent) {
  const Answer answer = Answer::reject("Go away");
  EXPECT_STREQ(answer.code(), "550");
  EXPECT_STREQ(answer.enhancedCode(), "5.7.1");
}

TEST(AnswerTest, AnythingNotDecidedIsATemporaryFailure) {
  EXPECT_EQ(Answer().kind, Answer::Kind::TempFail);
}

TEST(ReplyTextTest, DoublesPercentSignsAndKeepsToOneLine) {
  EXPECT_EQ(replyText("100% off"), "100%% off");
  EXPECT_EQ(replyText("%s%n"), "%%s%%n");
  EXPECT_EQ(replyText("a\r\n250 ok\tb\xC3\xA4"), "a??250 ok?b??");
  EXPECT_EQ(replyText(""), "Refused");
  EXPECT_EQ(replyText(std::string(1000, 'x')).size(), 480U);
}

}  // namespace
}  // namespace gateway::milter
