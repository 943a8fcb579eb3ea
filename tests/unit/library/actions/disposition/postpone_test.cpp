#include "library/actions/disposition/postpone.h"

#include <climits>
#include <map>

#include "tests/fakes/fault_plan.h"
#include "tests/unit/library/actions/disposition/blob_record.h"
#include "tests/unit/library/library_test.h"

namespace {

using fakes::FaultKind;
using fakes::FaultPlan;
using fakes::LogLines;

class PostponeTest : public LibraryTest {
 protected:
  ActPostpone action;
  fakes::Message msg;
};

TEST_F(PostponeTest, FreshObjectsHoldMidnight) {
  EXPECT_EQ(action.hour, 0);
  EXPECT_EQ(action.min, 0);
  uiPostpone settings;
  EXPECT_EQ(settings.hour, 0);
  EXPECT_EQ(settings.min, 0);
}

TEST_F(PostponeTest, PostponesFromItsTimeUntilTheEndOfTheDay) {
  action.hour = 8;
  action.min = 30;
  bool flag = false;
  EXPECT_TRUE(take(action, &msg, flag));
  EXPECT_TRUE(flag);
  ASSERT_EQ(adapter.calls().size(), 1u);
  EXPECT_EQ(adapter.calls()[0].text, "postpone 8:30 23:59");
  EXPECT_EQ(adapter.calls()[0].msg, &msg);
  EXPECT_EQ(adapter.errorOnEntry(), 0u);
}

TEST_F(PostponeTest, HandsOverTheLowEightBitsOfItsTime) {
  action.hour = 256 + 8;
  action.min = -1;
  bool flag = false;
  EXPECT_TRUE(take(action, &msg, flag));
  EXPECT_EQ(adapter.calls()[0].text, "postpone 8:255 23:59");
}

TEST_F(PostponeTest, SetsTheFlagAlsoWhenTheAdapterFails) {
  adapter.answer(7, -1);
  bool flag = false;
  EXPECT_FALSE(take(action, &msg, flag));
  EXPECT_TRUE(flag);
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "Failed to postpone a message, error 7."}}));
}

TEST_F(PostponeTest, SetsTheFlagBeforeTheAdapterIsAsked) {
  bool flag = false;
  class Watching : public fakes::Adapter {
   public:
    explicit Watching(const bool& flag) : flag_(flag) {}
    int postponeMessage(unsigned int& /*error*/, OvMsgMailMessage* /*msg*/,
                        unsigned char /*fromHour*/, unsigned char /*fromMinute*/,
                        unsigned char /*toHour*/, unsigned char /*toMinute*/) override {
      seen = flag_;
      throw std::runtime_error("gone");
    }
    bool seen = false;

   private:
    const bool& flag_;
  } watching(flag);
  EXPECT_FALSE(action.takeAction(&msg, nullptr, flag, tokens, watching, namedObjects));
  EXPECT_TRUE(watching.seen);
  EXPECT_TRUE(flag);
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "ActPostpone::takeAction failed: gone"}}));
}

TEST_F(PostponeTest, JudgesByTheErrorCodeAlone) {
  adapter.answer(0, -1);
  bool flag = false;
  EXPECT_TRUE(take(action, &msg, flag));
  adapter.answer(3, 0);
  EXPECT_FALSE(take(action, &msg, flag));
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "Failed to postpone a message, error 3."}}));
}

struct RecordCase {
  const char* what;
  std::map<std::string, std::string> fields;
  bool result;
  int hour;  // of a uiPostpone that held 1:2 before
  int min;
};

const RecordCase kRecords[] = {
    {"both fields", {{"hour", "8"}, {"min", "30"}}, true, 8, 30},
    {"other fields beside", {{"hour", "8"}, {"min", "30"}, {"sec", "1"}}, true, 8, 30},
    {"no range is checked", {{"hour", "-4"}, {"min", "2147483647"}}, true, -4, INT_MAX},
    {"min missing: hour is already taken", {{"hour", "8"}}, false, 8, 2},
    {"hour missing: min is not taken", {{"min", "30"}}, false, 1, 2},
    {"min is no number", {{"hour", "8"}, {"min", "x"}}, false, 8, 2},
    {"hour is no number", {{"hour", "x"}, {"min", "30"}}, false, 1, 2},
    {"no fields", {}, false, 1, 2},
};

TEST_F(PostponeTest, ReadsRecordsFieldByField) {
  for (const RecordCase& test : kRecords) {
    SCOPED_TRACE(test.what);
    const std::string text = record(test.fields);
    for (unsigned int length : {0u, 1u, static_cast<unsigned int>(text.size()), UINT_MAX}) {
      uiPostpone settings;
      settings.hour = 1;
      settings.min = 2;
      EXPECT_EQ(settings.construct(text.c_str(), length), test.result) << "the length is ignored";
      EXPECT_EQ(settings.hour, test.hour);
      EXPECT_EQ(settings.min, test.min);
    }
  }
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(PostponeTest, TheActionTakesOverARecordWholeOrNotAtAll) {
  for (const RecordCase& test : kRecords) {
    SCOPED_TRACE(test.what);
    action.hour = 1;
    action.min = 2;
    EXPECT_EQ(action.construct(record(test.fields).c_str(), 0), test.result);
    EXPECT_EQ(action.hour, test.result ? test.hour : 1);
    EXPECT_EQ(action.min, test.result ? test.min : 2);
  }
  EXPECT_TRUE(log.takeLines().empty()) << "a bad record is not logged";
}

TEST_F(PostponeTest, RefusesWhatIsNoRecord) {
  for (const char* text : {static_cast<const char*>(nullptr), "", "8:30", "{hour"}) {
    uiPostpone settings;
    EXPECT_FALSE(settings.construct(text, 4));
    EXPECT_FALSE(action.construct(text, 4));
  }
  EXPECT_EQ(action.hour, 0);
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(PostponeTest, ReadsBackWhatItWrote) {
  for (int hour : {0, 8, 23, -1, INT_MAX, INT_MIN}) {
    action.hour = hour;
    action.min = hour / 2;
    uiPostpone settings;
    const std::string text = action.serialize();
    EXPECT_EQ(text, record({{"hour", std::to_string(hour)}, {"min", std::to_string(hour / 2)}}));
    ASSERT_TRUE(settings.construct(text.c_str(), static_cast<unsigned int>(text.size())));
    EXPECT_EQ(settings.hour, action.hour);
    EXPECT_EQ(settings.min, action.min);
    EXPECT_EQ(settings.serialize(), text);
  }
}

TEST_F(PostponeTest, SerializesToNothingWhenAFieldCannotBeStored) {
  uiPostpone settings;
  for (unsigned int call : {1u, 2u}) {
    {
      const FaultPlan plan(FaultKind::PlatformFailure, call);
      EXPECT_EQ(settings.serialize(), "");
      EXPECT_TRUE(plan.fired());
    }
    const FaultPlan plan(FaultKind::PlatformFailure, call);
    EXPECT_EQ(action.serialize(), "");
    EXPECT_TRUE(plan.fired());
  }
}

}  // namespace
