#include "gateway/milter/message_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace gateway::milter {
namespace {

using testing::HasSubstr;
using testing::Not;

class MessageLogTest : public testing::Test {
 protected:
  std::string line() const {
    return messageLine({origin_, collected_, outcome_, changes_, answer_, failure_});
  }

  Origin origin_{.queueId = "4Bx1", .clientName = "client.example.org"};
  CollectedMessage collected_{{}, "/nowhere", 1000};
  engine::Outcome outcome_;
  ChangeSet changes_;
  Answer answer_ = Answer::goOn();
  std::string failure_;
};

TEST_F(MessageLogTest, HasOneWordForEachThingThatIsKnown) {
  collected_.setSender("<a@b.example>", {});
  collected_.addRecipient("<c@d.example>", {});
  outcome_.rules.emplace_back().id = 15;
  outcome_.rules.emplace_back().id = 16;
  outcome_.rules.back().skipped = true;
  outcome_.rules.emplace_back().id = 17;
  outcome_.rules.back().reached = false;
  changes_.headers.push_back({HeaderEdit::Kind::Insert, "X-A", 1, " b"});
  EXPECT_EQ(line(),
            "message queue=4Bx1 verdict=accept rules=15,16(skipped),17(not-reached) "
            "changes=\"insert X-A\" "
            "from=<a@b.example> to=<c@d.example> client=client.example.org bytes=0 ms=0");
}

TEST_F(MessageLogTest, NamesTheRuleWhoseVerdictItIs) {
  answer_ = Answer::reject("Not here");
  outcome_.rules.emplace_back().id = 15;
  outcome_.verdictRule = 15;
  outcome_.verdictText = "Not \"here\"";
  EXPECT_THAT(line(), HasSubstr(" verdict=reject rule=15 text=\"Not \\\"here\\\"\" rules=15 "));
}

TEST_F(MessageLogTest, SaysWhatFailedAndWasAcceptedAndWhatStays) {
  engine::RuleReport& rule = outcome_.rules.emplace_back();
  rule.id = 15;
  rule.failureAccepted = true;
  rule.actions.resize(2);
  rule.actions[0].spec = policy::findAction("archive");
  rule.actions[0].result = true;
  rule.actions[1].spec = policy::findAction("stamp");
  rule.actions[1].failure = "no memory";
  EXPECT_THAT(line(), HasSubstr(" rules=15(accepted) "));
  EXPECT_THAT(acceptedLines({origin_, collected_, outcome_, changes_, answer_, failure_}),
              testing::ElementsAre("accepted queue=4Bx1 rule=15 failure=\"action stamp of rule "
                                   "15\" reason=\"no memory\" stays=archive"));
}

TEST_F(MessageLogTest, SaysAtLevelOneWhyAnActionFailed) {
  engine::RuleReport& rule = outcome_.rules.emplace_back();
  rule.id = 15;
  rule.actions.resize(2);
  rule.actions[0].spec = policy::findAction("archive");
  rule.actions[0].result = true;
  rule.actions[1].spec = policy::findAction("stamp");
  rule.actions[1].failure = "no memory";
  const auto lines = [this] {
    return actionLines({origin_, collected_, outcome_, changes_, answer_, failure_});
  };
  ASSERT_EQ(lines().size(), 2u);
  EXPECT_EQ(lines()[0].level, 2);
  EXPECT_EQ(lines()[0].text, "action queue=4Bx1 rule=15 action=archive result=ok");
  EXPECT_EQ(lines()[1].level, 1);
  EXPECT_EQ(lines()[1].text,
            "action queue=4Bx1 rule=15 action=stamp result=failed failure=\"no memory\"");
  rule.failureAccepted = true;  // has a line of its own
  EXPECT_EQ(lines()[1].level, 2);
}

TEST_F(MessageLogTest, NothingFromOutsideLooksLikeAnotherWord) {
  origin_.helo = "x verdict=discard \"y\\\n\x1b";
  origin_.user = "\xC3\xA4";
  EXPECT_THAT(line(), HasSubstr("helo=\"x verdict=discard \\\"y\\\\\\\\n\\\\x1B\""));
  EXPECT_THAT(line(), HasSubstr("user=\"\xC3\xA4\""));
  EXPECT_THAT(line(), Not(HasSubstr("\n")));
}

TEST_F(MessageLogTest, LongListsAreCounted) {
  for (int i = 0; i < 30; ++i) collected_.addRecipient("r" + std::to_string(i) + "@d.example", {});
  EXPECT_THAT(line(), HasSubstr("<r19@d.example>,and 10\""));
  EXPECT_THAT(line(), Not(HasSubstr("r20@")));
}

TEST_F(MessageLogTest, SaysWhyAMessageWasRefused) {
  answer_ = Answer::tempFail("4Bx1");
  failure_ = "action stamp of rule 2";
  EXPECT_THAT(line(), HasSubstr("verdict=tempfail failure=\"action stamp of rule 2\""));
}

}  // namespace
}  // namespace gateway::milter
