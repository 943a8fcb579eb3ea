// The framework, the library settings and the actions on header fields and delivery; what the sweep
// expects is said in fault_sweep.h.
#include "tests/unit/library/fault_sweep.h"

#include <iterator>

#include "library/actions/disposition/delete.h"
#include "library/actions/disposition/postpone.h"
#include "library/actions/disposition/virus_clean.h"
#include "library/actions/modification/x_header.h"
#include "library/framework/init_action_lib.h"
#include "library/framework/kavi_action_n.h"
#include "library/platform/blob.h"
#include "tests/fakes/allocator.h"

namespace {

using namespace sweep;

/// Settings strings too long for a string's own buffer, so that every copy allocates.
const std::string kXHeader = "X-A-Name-That-Needs-Memory: a value that needs memory too";
const std::string kXName = "X-A-Name-That-Needs-Memory";
const std::string kXValue = "a value that needs memory too";

class Sample : public KaviActionN {
 public:
  Sample() : KaviActionN(Stamp, false) {}
  const Ids& read() const { return ids; }
};

std::string postponeRecord() {
  std::string text;
  Blob::writeBlob(text, {{"hour", "8"}, {"min", "30"}});
  return text;
}

bool startsWithFullSettings(Trial& trial, bool (*start)(Kavi::GlobalSetting&, Kavi::LogMsg&)) {
  const std::string charset = "a-charset-whose-name-needs-memory";
  trial.settings.set("General-Notification", "PreferredCharset", charset);
  trial.settings.set("MessageModule", "DefaultSourceCharset", charset);
  trial.settings.set("MessageModule", "UseMailCharsetAsDestinationCharset", "1");
  trial.settings.set("MessageModule", "UseUTF8AsPreferCharsetForStamp", "1");
  trial.settings.set("general", "locale", "ja");
  trial.settings.set("general", "useKaviLocaleForNotificationTime", charset);
  fakes::Resources::instance().set("IDG_KAVI_UTIL", "ja", "AU_NOTIFY_TIMEFORMAT",
                                   "%Y a format that needs memory");
  fakes::CapturingLog log(3);
  bool result = false;
  trial.run([&] { result = start(trial.settings, log); });
  EXPECT_TRUE(result) << "nothing stops the start";

  bool complete = true;
  for (const char* value : {ActionUtils::getDefaultDstCharset(), ActionUtils::getLocalCharset()}) {
    EXPECT_TRUE(value == charset || value == std::string("us-ascii")) << value;
    complete = complete && value == charset;
  }
  const std::string localeSwitch = ActionUtils::getUseKaviLocaleForNotifyTime();
  EXPECT_TRUE(localeSwitch == charset || localeSwitch == "no") << localeSwitch;
  const std::string format = ActionUtils::getNotifyTimeFormat();
  EXPECT_NE(format, "");
  log.takeLines();
  fakes::CapturingLog nowhere(0);
  fakes::Settings none;
  fakes::Resources::instance().clear();
  ActionUtils::init(none, nowhere);
  return complete && localeSwitch == charset && format == "%Y a format that needs memory";
}

const Operation kOperations[] = {
    {"ActionUtils::init",
     [](Trial& trial) { return startsWithFullSettings(trial, &ActionUtils::init); }},
    {"InitActionLib",
     [](Trial& trial) {
       return startsWithFullSettings(trial, [](Kavi::GlobalSetting& settings, Kavi::LogMsg& log) {
         return InitActionLib(settings, log) == 1;
       });
     }},
    {"ActionUtils::L1",
     [](Trial& trial) {
       fakes::CapturingLog log(3);
       fakes::Settings none;
       ActionUtils::init(none, log);
       log.takeLines();
       trial.run([] { ActionUtils::L1("%s", "line"); });
       const bool written = log.takeLines() == fakes::LogLines{{1, "line"}};
       fakes::CapturingLog nowhere(0);
       ActionUtils::init(none, nowhere);
       return written;
     }},
    {"KaviActionN::construct",
     [](Trial& trial) {
       Sample action;
       bool result = false;
       trial.run([&] { result = action.construct("3-1-2-3", 7); });
       EXPECT_EQ(action.read() == (Ids{1, 2, 3}), result);
       return result;
     }},
    {"KaviActionN::construct, refused",
     [](Trial& trial) {
       Sample action;
       bool result = true;
       trial.run([&] { result = action.construct("3-1", 3); });
       return !result;
     }},
    {"KaviActionN::serialize",
     [](Trial& trial) {
       return serializes<Sample>(trial, "3-4000000001-4000000002-4000000003",
                                 "3-4000000001-4000000002-4000000003");
     }},
    {"KaviActionN::getNamedObjectIds",
     [](Trial& trial) {
       Sample action;
       Ids ids;
       bool result = false;
       trial.run([&] { result = action.getNamedObjectIds("3-1-2-3", 7, ids); });
       EXPECT_EQ(ids == (Ids{1, 2, 3}), result);
       return result;
     }},
    {"KaviAction::getNamedObjectIds",
     [](Trial& trial) {
       Sample action;
       Ids ids;
       const std::string setting = "3-1-2-3";
       bool result = false;
       trial.run([&] { result = action.getNamedObjectIds(setting, ids); });
       EXPECT_EQ(ids == (Ids{1, 2, 3}), result);
       return result;
     }},
    {"ActDelete::construct", [](Trial& trial) { return constructs<ActDelete>(trial, "any"); }},
    {"ActDelete::serialize", [](Trial& trial) { return serializes<ActDelete>(trial, "", ""); }},
    {"ActDelete::getNamedObjectIds",
     [](Trial& trial) { return answersIds<ActDelete>(trial, true); }},
    {"ActDelete::takeAction",
     [](Trial& trial) {
       ActDelete action;
       bool flag = false;
       const bool result = takes(trial, action, flag);
       EXPECT_EQ(flag, result);
       EXPECT_EQ(trial.adapter.calls().size(), result ? 1u : 0u);
       return result;
     }},
    {"ActVirusClean::takeAction",
     [](Trial& trial) {
       ActVirusClean action;
       bool flag = false;
       const bool result = takes(trial, action, flag);
       EXPECT_FALSE(flag);
       return result;
     }},
    {"uiPostpone::construct",
     [](Trial& trial) { return constructs<uiPostpone>(trial, postponeRecord()); }},
    {"uiPostpone::serialize",
     [](Trial& trial) {
       return serializes<uiPostpone>(trial, postponeRecord(), postponeRecord());
     }},
    {"ActPostpone::construct",
     [](Trial& trial) {
       const std::string setting = postponeRecord();
       ActPostpone action;
       bool result = false;
       trial.run([&] { result = action.construct(setting.c_str(), 1); });
       EXPECT_EQ(action.hour, result ? 8 : 0);
       EXPECT_EQ(action.min, result ? 30 : 0);
       return result;
     }},
    {"ActPostpone::serialize",
     [](Trial& trial) {
       return serializes<ActPostpone>(trial, postponeRecord(), postponeRecord());
     }},
    {"ActPostpone::takeAction",
     [](Trial& trial) {
       ActPostpone action;
       bool flag = false;
       const bool result = takes(trial, action, flag);
       EXPECT_TRUE(flag) << "set before anything can fail";
       EXPECT_EQ(trial.adapter.calls().size(), result ? 1u : 0u);
       return result;
     }},
    {"uiInsertXHeaderTag::construct",
     [](Trial& trial) { return constructs<uiInsertXHeaderTag>(trial, kXHeader); }},
    {"uiInsertXHeaderTag::serialize",
     [](Trial& trial) {
       return serializes<uiInsertXHeaderTag>(trial, kXHeader, kXName + ":" + kXValue);
     }},
    {"uiInsertXHeaderTag::getXHeaderTag",
     [](Trial& trial) {
       uiInsertXHeaderTag settings;
       settings.construct(kXHeader.c_str(), static_cast<unsigned int>(kXHeader.size()));
       std::string name = "old";
       std::string value = "old";
       bool result = false;
       trial.run([&] { result = settings.getXHeaderTag(name, value); });
       EXPECT_EQ(name, result ? kXName : "old");
       EXPECT_EQ(value, result ? kXValue : "old");
       return result;
     }},
    {"uiInsertXHeaderTag::setXHeaderTag",
     [](Trial& trial) {
       uiInsertXHeaderTag settings;
       std::string name = kXName;
       std::string value = kXValue;
       bool result = false;
       trial.run([&] { result = settings.setXHeaderTag(name, value); });
       EXPECT_EQ(settings.serialize(), result ? kXName + ":" + kXValue : ":");
       return result;
     }},
    {"uiInsertXHeaderTag::_checkXHeaderTagValidation",
     [](Trial& trial) {
       std::string checked;
       bool result = false;
       trial.run([&] {
         result = uiInsertXHeaderTag::_checkXHeaderTagValidation(
             kXHeader.c_str(), static_cast<int>(kXHeader.size()), checked);
       });
       EXPECT_EQ(checked, result ? kXHeader : "");
       return result;
     }},
    {"ActInsertXHeaderTag::construct",
     [](Trial& trial) {
       ActInsertXHeaderTag action;
       bool result = false;
       trial.run([&] {
         result = action.construct(kXHeader.c_str(), static_cast<unsigned int>(kXHeader.size()));
       });
       EXPECT_EQ(action.serialize(), result ? kXName + ":" + kXValue : ":");
       return result;
     }},
    {"ActInsertXHeaderTag::serialize",
     [](Trial& trial) {
       return serializes<ActInsertXHeaderTag>(trial, kXHeader, kXName + ":" + kXValue);
     }},
    {"ActInsertXHeaderTag::takeAction",
     [](Trial& trial) {
       ActInsertXHeaderTag action;
       action.construct(kXHeader.c_str(), static_cast<unsigned int>(kXHeader.size()));
       bool flag = true;
       const bool result = takes(trial, action, flag);
       EXPECT_FALSE(flag);
       EXPECT_EQ(trial.msg.fields(), result ? Texts{kXName + ":" + kXValue} : Texts{});
       return result;
     }},
};

TEST_P(FaultSweepTest, EndsWithTheStatedResultAndLeaksNothing) {
  const auto [operation, kind] = GetParam();
  for (unsigned int call = 1; call <= kMaxCalls; ++call) {
    SCOPED_TRACE(std::string(operation->name) + ", call " + std::to_string(call));
    {
      Trial undisturbed(FaultKind::None, 0);  // allocates what the library keeps for good
      EXPECT_TRUE(operation->run(undisturbed));
    }
    forget();
    const long before = fakes::liveAllocations();
    bool fired = false;
    bool succeeded = false;
    {
      Trial trial(kind, call);
      succeeded = operation->run(trial);
      fired = trial.fired();
      EXPECT_FALSE(trial.thrown());
    }
    forget();
    EXPECT_LE(fakes::liveAllocations(), before) << "leaked";
    if (!fired) {
      EXPECT_TRUE(succeeded) << "with no fault in its way";
      return;
    }
    ASSERT_FALSE(HasFailure());
  }
  FAIL() << "never runs through";
}

INSTANTIATE_TEST_SUITE_P(Core, FaultSweepTest, each(kOperations), nameOf);

/// The sweep is only worth something if its faults happen where they are meant to.
TEST(FaultSweepSelfTest, EveryKindOfFaultHappens) {
  for (FaultKind kind :
       {FaultKind::Allocation, FaultKind::PlatformFailure, FaultKind::PlatformThrow}) {
    unsigned int call = 0;
    bool fired = true;
    while (fired && ++call < kMaxCalls) {
      Trial trial(kind, call);
      startsWithFullSettings(trial, &ActionUtils::init);
      fired = trial.fired();
    }
    EXPECT_GT(call, 5u) << fakes::faultName(kind);
  }
}

}  // namespace
