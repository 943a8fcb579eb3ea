// Messages that came back for scanning, and those that only say so.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "gateway/cli/dry_adapter.h"
#include "gateway/engine/engine.h"
#include "tests/unit/gateway/messages.h"
#include "tests/unit/gateway/policy_texts.h"

namespace gateway::engine {
namespace {

using host::delivery::ReprocessTrust;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kMarked[] =
    "Subject: x\nX-kavi-reprocess-rules: 12\nX-kavi-reprocess-type: quarantine\n";
constexpr char kQuarantine[] =
    "quarantine_areas: [{name: virus}]\n"
    "rules:\n- {id: 15, when: always, actions: [{quarantine: virus}]}\n";

class ReprocessingTest : public testing::Test {
 protected:
  Outcome run(const char* policy, ReprocessTrust trust, const std::string& header = kMarked) {
    message_ = withHeader(header);
    return runMessage(*message_, *policy::snapshotOf(policy),
                      {.adapter = adapter_, .hostName = "h", .trust = trust});
  }

  cli::DryAdapter adapter_;
  std::unique_ptr<host::message::Message> message_;
};

TEST_F(ReprocessingTest, TrustedFieldsAreStoredWithTheRuleAndLeftAsTheyWere) {
  const Outcome outcome = run(kQuarantine, ReprocessTrust::Assumed);
  EXPECT_EQ(outcome.verdict, Verdict::Disposed);
  EXPECT_TRUE(outcome.reprocessing.honoured);
  const ActionReport& action = outcome.rules.at(0).actions.at(0);
  ASSERT_THAT(action.handOvers, SizeIs(1));
  EXPECT_EQ(action.handOvers[0].rules, "12 15");
  EXPECT_EQ(action.handOvers[0].type, "quarantine");
  EXPECT_EQ(action.rulesLeft, "12");
}

TEST_F(ReprocessingTest, UnsealedFieldsAreGoneBeforeAnActionRuns) {
  const Outcome outcome = run(kQuarantine, ReprocessTrust::Nobody);
  EXPECT_FALSE(outcome.reprocessing.honoured);
  EXPECT_FALSE(outcome.reprocessing.refusal.empty());
  const ActionReport& action = outcome.rules.at(0).actions.at(0);
  ASSERT_THAT(action.handOvers, SizeIs(1));
  EXPECT_EQ(action.handOvers[0].rules, "15");
  EXPECT_EQ(action.rulesLeft, "");
}

constexpr char kTwelve[] =
    "rules:\n- {id: 12, when: always, actions: [delete]}\n"
    "- {id: 13, when: always, actions: [{x_header: 'X-A: b'}]}\n";

TEST_F(ReprocessingTest, SkipsTheRuleThatSentTheMessageBack) {
  const Outcome outcome = run(kTwelve, ReprocessTrust::Assumed);
  EXPECT_EQ(outcome.verdict, Verdict::Changed);
  ASSERT_THAT(outcome.rules, SizeIs(2));
  EXPECT_TRUE(outcome.rules[0].skipped);
  EXPECT_FALSE(outcome.rules[0].reached);
  EXPECT_THAT(outcome.rules[0].actions, IsEmpty());
  EXPECT_FALSE(outcome.rules[1].skipped);
  EXPECT_EQ(message_->toString(), "Subject: x\nX-A: b\n\nbody\n") << "nobody sees the fields";
}

TEST_F(ReprocessingTest, SkipsNothingForFieldsThatAnybodyCouldWrite) {
  for (const ReprocessTrust trust : {ReprocessTrust::Nobody, ReprocessTrust::Sealed}) {
    const Outcome outcome = run(kTwelve, trust);
    EXPECT_EQ(outcome.verdict, Verdict::Disposed);
    EXPECT_FALSE(outcome.rules.at(0).skipped);
  }
}

TEST_F(ReprocessingTest, TakesUnsealedFieldsOutOfAMessageThatNoRuleMatches) {
  const Outcome outcome = run("rules: []\n", ReprocessTrust::Nobody);
  EXPECT_EQ(outcome.verdict, Verdict::Changed);
  EXPECT_EQ(message_->toString(), "Subject: x\n\nbody\n");
}

TEST_F(ReprocessingTest, LeavesMessagesWithoutSuchFieldsAlone) {
  for (const ReprocessTrust trust : {ReprocessTrust::Nobody, ReprocessTrust::Assumed}) {
    const Outcome outcome = run("rules: []\n", trust, "Subject: x\n");
    EXPECT_EQ(outcome.verdict, Verdict::Unchanged);
    EXPECT_FALSE(outcome.reprocessing.honoured);
    EXPECT_FALSE(message_->changed());
  }
}

TEST_F(ReprocessingTest, RulesCannotMatchUnsealedFields) {
  const Outcome outcome =
      run("rules:\n- {id: 1, when: {header: {name: X-kavi-reprocess-rules}}, actions: [delete]}\n",
          ReprocessTrust::Nobody);
  EXPECT_THAT(outcome.rules, IsEmpty());
}

}  // namespace
}  // namespace gateway::engine
