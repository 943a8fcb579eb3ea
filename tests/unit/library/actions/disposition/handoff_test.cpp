#include "library/actions/disposition/handoff.h"

#include <climits>
#include <map>

#include "tests/fakes/fault_plan.h"
#include "tests/unit/library/actions/disposition/blob_record.h"
#include "tests/unit/library/library_test.h"

namespace {

using fakes::FaultKind;
using fakes::FaultPlan;
using fakes::LogLines;

class HandoffTest : public LibraryTest {
 protected:
  ActHandoff action;
  fakes::Message msg;
};

TEST_F(HandoffTest, FreshObjectsHoldNoHost) {
  EXPECT_EQ(action.ip, "");
  EXPECT_EQ(action.port, 0);
  uiHandoff settings;
  EXPECT_EQ(settings.ip, "");
  EXPECT_EQ(settings.port, 0);
}

TEST_F(HandoffTest, HandsTheMessageToItsHost) {
  action.ip = "192.0.2.1";
  action.port = 25;
  bool flag = false;
  EXPECT_TRUE(take(action, &msg, flag));
  EXPECT_TRUE(flag);
  ASSERT_EQ(adapter.calls().size(), 1u);
  EXPECT_EQ(adapter.calls()[0].text, "handoff 192.0.2.1 25");
  EXPECT_EQ(adapter.calls()[0].msg, &msg);
  EXPECT_EQ(adapter.errorOnEntry(), 0u);
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(HandoffTest, DoesNothingWithoutHostOrPort) {
  const struct {
    const char* ip;
    int port;
  } kCases[] = {{"", 25}, {"192.0.2.1", 0}, {"", 0}};
  for (const auto& test : kCases) {
    action.ip = test.ip;
    action.port = test.port;
    for (bool before : {false, true}) {
      bool flag = before;
      EXPECT_FALSE(take(action, &msg, flag));
      EXPECT_EQ(flag, before);
    }
  }
  EXPECT_TRUE(adapter.calls().empty());
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(HandoffTest, LeavesTheFlagSetWhenTheAdapterFails) {
  action.ip = "192.0.2.1";
  action.port = 2525;
  adapter.answer(10, -1);
  bool flag = false;
  EXPECT_FALSE(take(action, &msg, flag));
  EXPECT_TRUE(flag);
  EXPECT_EQ(log.takeLines(), (LogLines{{1,
                                        "Failed to hand off a message. "
                                        "err=0x0000000A(10d),ip='192.0.2.1',port='2525'"}}));
}

TEST_F(HandoffTest, JudgesByTheReturnedValueAlone) {
  action.ip = "h";
  action.port = -1;
  bool flag = false;
  adapter.answer(10, 0);
  EXPECT_TRUE(take(action, &msg, flag));
  EXPECT_EQ(adapter.calls()[0].text, "handoff h -1") << "no range is checked";
  adapter.answer(0, 1);
  EXPECT_FALSE(take(action, &msg, flag));
  EXPECT_EQ(log.takeLines(),
            (LogLines{{1, "Failed to hand off a message. err=0x00000000(0d),ip='h',port='-1'"}}));
}

TEST_F(HandoffTest, SetsTheFlagBeforeTheAdapterIsAsked) {
  action.ip = "h";
  action.port = 25;
  bool flag = false;
  const FaultPlan plan(FaultKind::PlatformThrow, 1);
  EXPECT_FALSE(take(action, &msg, flag));
  EXPECT_TRUE(flag);
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "ActHandoff::takeAction failed: platform fault"}}));
}

struct RecordCase {
  const char* what;
  std::map<std::string, std::string> fields;
  bool result;
  const char* ip;  // of a uiHandoff that held h:1 before
  int port;
};

const RecordCase kRecords[] = {
    {"both fields", {{"ip", "192.0.2.1"}, {"port", "25"}}, true, "192.0.2.1", 25},
    {"other fields beside", {{"ip", "x"}, {"port", "25"}, {"more", "1"}}, true, "x", 25},
    {"empty host", {{"ip", ""}, {"port", "25"}}, true, "", 25},
    {"any port", {{"ip", "x"}, {"port", "-2147483648"}}, true, "x", INT_MIN},
    {"port missing: the host is already taken", {{"ip", "x"}}, false, "x", 1},
    {"port is no number", {{"ip", "x"}, {"port", "smtp"}}, false, "x", 1},
    {"host missing: the port is not taken", {{"port", "25"}}, false, "h", 1},
    {"no fields", {}, false, "h", 1},
};

TEST_F(HandoffTest, ReadsRecordsFieldByField) {
  for (const RecordCase& test : kRecords) {
    SCOPED_TRACE(test.what);
    const std::string text = record(test.fields);
    for (unsigned int length : {0u, 1u, UINT_MAX}) {
      uiHandoff settings;
      settings.ip = "h";
      settings.port = 1;
      EXPECT_EQ(settings.construct(text.c_str(), length), test.result) << "the length is ignored";
      EXPECT_EQ(settings.ip, test.ip);
      EXPECT_EQ(settings.port, test.port);
    }
  }
  EXPECT_TRUE(log.takeLines().empty());
}

TEST_F(HandoffTest, TheActionTakesOverARecordWholeOrNotAtAll) {
  for (const RecordCase& test : kRecords) {
    SCOPED_TRACE(test.what);
    action.ip = "h";
    action.port = 1;
    const std::string text = record(test.fields);
    EXPECT_EQ(action.construct(text.c_str(), 0), test.result);
    EXPECT_EQ(action.ip, test.result ? test.ip : "h");
    EXPECT_EQ(action.port, test.result ? test.port : 1);
    const LogLines refused{{1, "Failed to construct Action Handoff with setting: '" +
                                   text.substr(0, 32) + "' (max 32 chars)"}};
    EXPECT_EQ(log.takeLines(), test.result ? LogLines{} : refused);
  }
}

TEST_F(HandoffTest, LogsTheFirst32CharactersOfARefusedSetting) {
  EXPECT_FALSE(action.construct("no record, and much longer than thirty-two characters", 0));
  EXPECT_FALSE(action.construct("", 0));
  EXPECT_FALSE(action.construct(nullptr, 4));
  EXPECT_EQ(log.takeLines(),
            (LogLines{{1,
                       "Failed to construct Action Handoff with setting: "
                       "'no record, and much longer than ' (max 32 chars)"},
                      {1, "Failed to construct Action Handoff with setting: '' (max 32 chars)"},
                      {1, "Failed to construct Action Handoff with setting: '' (max 32 chars)"}}));
}

TEST_F(HandoffTest, TheActionsHostEndsAtItsFirstNul) {
  const std::string host("192.0.2.1\0x", 11);
  uiHandoff settings;
  settings.ip = host;
  settings.port = 25;
  const std::string text = settings.serialize();
  ASSERT_TRUE(settings.construct(text.c_str(), 0));
  EXPECT_EQ(settings.ip, host) << "the settings class keeps it whole";
  ASSERT_TRUE(action.construct(text.c_str(), 0));
  EXPECT_EQ(action.ip, "192.0.2.1");
  action.ip = host;
  EXPECT_EQ(action.serialize(), record({{"ip", "192.0.2.1"}, {"port", "25"}}));
}

TEST_F(HandoffTest, ReadsBackWhatItWrote) {
  for (int port : {0, 25, 65535, -1, INT_MAX, INT_MIN}) {
    action.ip = "relay.example";
    action.port = port;
    const std::string text = action.serialize();
    uiHandoff settings;
    ASSERT_TRUE(settings.construct(text.c_str(), 0));
    EXPECT_EQ(settings.ip, action.ip);
    EXPECT_EQ(settings.port, port);
    EXPECT_EQ(settings.serialize(), text);
  }
}

TEST_F(HandoffTest, SerializesToNothingWhenAFieldCannotBeStored) {
  uiHandoff settings;
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

TEST_F(HandoffTest, InitReadsWhetherTheMessageIdGoes) {
  const auto flagAfter = [this](const char* value) {
    fakes::Settings settings;
    if (value != nullptr) {
      settings.set("MessageModule", "RemoveKaviMsgID", value);
    }
    EXPECT_TRUE(ActHandoff::init(settings, log));
    EXPECT_EQ(settings.lookups(), Texts{"getInt MessageModule/RemoveKaviMsgID"});
    return ActHandoff::getRemoveMessageIdFlag();
  };
  EXPECT_FALSE(flagAfter(nullptr));
  EXPECT_FALSE(flagAfter("0"));
  EXPECT_TRUE(flagAfter("1"));
  EXPECT_TRUE(flagAfter(nullptr)) << "a missing setting leaves it as it was";
  EXPECT_TRUE(flagAfter("-1"));
  EXPECT_FALSE(flagAfter("0"));
  EXPECT_TRUE(log.takeLines().empty());
}

}  // namespace
