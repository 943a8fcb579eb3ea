#include "library/actions/disposition/reprocessing.h"

#include "tests/fakes/fault_plan.h"
#include "tests/unit/library/library_test.h"

namespace {

using fakes::FaultKind;
using fakes::FaultPlan;
using fakes::LogLines;
using Kavi::ScanToken;

constexpr char kRules[] = "X-kavi-reprocess-rules";
constexpr char kType[] = "X-kavi-reprocess-type";

class ReprocessingTest : public LibraryTest {
 protected:
  bool add() {
    return library::_add_rule_skipping_header(tokens, msg.root(), hadHeader, oldValue, "word");
  }
  void reset() { library::_reset_rule_skipping_header(msg.root(), hadHeader, oldValue); }
  void hold(const char* value) { msg.root()->addHeader(-1, kRules, value, nullptr); }
  static std::string rules(const std::string& value) { return kRules + (":" + value); }
  const std::string type = kType + std::string(":word");

  fakes::Message msg;
  bool hadHeader = false;
  std::string oldValue = "old";
};

TEST_F(ReprocessingTest, AMessageWithoutTheHeaderGetsTheRuleAlone) {
  tokens.set(ScanToken::RuleId, "15");
  EXPECT_TRUE(add());
  EXPECT_FALSE(hadHeader);
  EXPECT_EQ(oldValue, "");
  EXPECT_EQ(msg.fields(), (Texts{rules("15"), type}));
  reset();
  EXPECT_EQ(msg.fields(), Texts{type}) << "the type stays";
}

TEST_F(ReprocessingTest, AnEarlierRuleIsKeptAndRestored) {
  hold("12");
  tokens.set(ScanToken::RuleId, "15");
  EXPECT_TRUE(add());
  EXPECT_TRUE(hadHeader);
  EXPECT_EQ(oldValue, "12");
  EXPECT_EQ(msg.fields(), (Texts{rules("12 15"), type}));
  reset();
  EXPECT_EQ(msg.fields(), (Texts{rules("12"), type}));
}

TEST_F(ReprocessingTest, AnEmptyHeaderCountsAsAbsent) {
  hold("");
  tokens.set(ScanToken::RuleId, "15");
  EXPECT_TRUE(add());
  EXPECT_FALSE(hadHeader);
  EXPECT_EQ(msg.fields(), (Texts{rules("15"), type}));
  reset();
  EXPECT_EQ(msg.fields(), Texts{type}) << "removed, not restored to empty";
}

TEST_F(ReprocessingTest, LeavesTheFlagAsTheCallerSetItWhenThereIsNoHeader) {
  tokens.set(ScanToken::RuleId, "15");
  hadHeader = true;
  EXPECT_TRUE(add());
  EXPECT_TRUE(hadHeader);
}

TEST_F(ReprocessingTest, WritesNothingWithoutARule) {
  for (bool empty : {false, true}) {
    if (empty) {
      tokens.set(ScanToken::RuleId, "");
    }
    EXPECT_TRUE(add());
    EXPECT_EQ(msg.fields(), Texts{});
    EXPECT_EQ(log.takeLines(), (LogLines{{3, "Missing rule id for message reprocessing."}}));
  }
}

TEST_F(ReprocessingTest, LooksAtTheHeaderAlsoWithoutARule) {
  hold("12");
  EXPECT_TRUE(add());
  EXPECT_TRUE(hadHeader);
  EXPECT_EQ(oldValue, "12");
  reset();
  EXPECT_EQ(msg.fields(), Texts{rules("12")});
  log.takeLines();
}

TEST_F(ReprocessingTest, GoesOnWhenTheRulesCannotBeWritten) {
  tokens.set(ScanToken::RuleId, "15");
  const FaultPlan plan(FaultKind::PlatformFailure, 2);  // the first call reads the header
  EXPECT_TRUE(add());
  EXPECT_TRUE(plan.fired());
  EXPECT_EQ(msg.fields(), Texts{type});
  EXPECT_EQ(log.takeLines(),
            (LogLines{{3, "Failed to place rule id into message for reprocessing."}}));
}

TEST_F(ReprocessingTest, DoesNotMindATypeThatCannotBeWritten) {
  tokens.set(ScanToken::RuleId, "15");
  const FaultPlan plan(FaultKind::PlatformFailure, 3);
  EXPECT_TRUE(add());
  EXPECT_TRUE(plan.fired());
  EXPECT_EQ(msg.fields(), Texts{rules("15")});
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(ReprocessingTest, ReplacesTheTypeOfAnEarlierAction) {
  tokens.set(ScanToken::RuleId, "15");
  msg.root()->addHeader(-1, kType, "notification", nullptr);
  EXPECT_TRUE(add());
  EXPECT_EQ(msg.fields(), (Texts{type, rules("15")}));
}

TEST_F(ReprocessingTest, FailsOnlyForAMessageWithoutRoot) {
  tokens.set(ScanToken::RuleId, "15");
  EXPECT_FALSE(library::_add_rule_skipping_header(tokens, nullptr, hadHeader, oldValue, "word"));
  EXPECT_EQ(oldValue, "old");
  EXPECT_TRUE(log.takeLines().empty());
  library::_reset_rule_skipping_header(nullptr, true, "12");
}

TEST_F(ReprocessingTest, RestoresTheHeaderWhenThePlatformThrows) {
  hold("12");
  tokens.set(ScanToken::RuleId, "15");
  for (unsigned int call : {1u, 2u, 3u}) {
    const FaultPlan plan(FaultKind::PlatformThrow, call);
    EXPECT_THROW(add(), fakes::PlatformFault);
    EXPECT_EQ(msg.fields(), Texts{rules("12")}) << call;
  }
}

TEST_F(ReprocessingTest, ScopeRestoresAtItsEnd) {
  hold("12");
  tokens.set(ScanToken::RuleId, "15");
  {
    const library::RuleSkippingHeader mark(tokens, msg.root(), "word");
    EXPECT_EQ(msg.fields(), (Texts{rules("12 15"), type}));
  }
  EXPECT_EQ(msg.fields(), (Texts{rules("12"), type}));
}

TEST_F(ReprocessingTest, ScopeRestoresOnceWhenAskedTo) {
  tokens.set(ScanToken::RuleId, "15");
  {
    library::RuleSkippingHeader mark(tokens, msg.root(), "word");
    mark.restore();
    EXPECT_EQ(msg.fields(), Texts{type});
    hold("later");
  }
  EXPECT_EQ(msg.fields(), (Texts{type, rules("later")}));
}

TEST_F(ReprocessingTest, ScopeLogsAMessageWithoutRoot) {
  { const library::RuleSkippingHeader mark(tokens, nullptr, "word"); }
  EXPECT_EQ(log.takeLines(),
            (LogLines{{3, "Cannot place reprocessing information into malformed message."}}));
}

}  // namespace
