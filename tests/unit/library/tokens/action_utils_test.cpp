#include "library/tokens/action_utils.h"

#include "tests/fakes/fault_plan.h"
#include "tests/unit/library/library_test.h"

namespace {

using fakes::LogLine;
using fakes::LogLines;

constexpr char kNoPreferred[] =
    "Assume 'us-ascii' for default destination (preferred) charset. The value is missing in global "
    "setting, section: General-Notification, value: PreferredCharset";
constexpr char kNoSource[] =
    "Assume 'us-ascii' for default source charset. The value is missing in global setting, "
    "section: MessageModule, value: DefaultSourceCharset";
constexpr char kNoMailCharset[] =
    "Use mail charset is off. The value is missing in global setting, section: MessageModule, "
    "value: UseMailCharsetAsDestinationCharset";
constexpr char kNoUtf8[] =
    "Use UseUTF8AsPreferCharsetForStamp is off. The value is missing in global setting, section: "
    "MessageModule, value: UseUTF8AsPreferCharsetForStamp";
constexpr char kNoResource[] = "ActionUtils: retrieve string from resource file failed";

class ActionUtilsTest : public LibraryTest {
 protected:
  bool init() { return ActionUtils::init(settings, log); }

  fakes::Settings settings;
};

TEST_F(ActionUtilsTest, WithoutSettingsGivesDefaultsAndFiveNotices) {
  EXPECT_TRUE(init());
  EXPECT_STREQ(ActionUtils::getDefaultDstCharset(), "us-ascii");
  EXPECT_STREQ(ActionUtils::getLocalCharset(), "us-ascii");
  EXPECT_FALSE(ActionUtils::getUseMailCharsetFlag());
  EXPECT_FALSE(ActionUtils::getUseUTF8AsPreferForStampActionFlag());
  EXPECT_STREQ(ActionUtils::getUseKaviLocaleForNotifyTime(), "no");
  EXPECT_STREQ(ActionUtils::getNotifyTimeFormat(), "%m/%d/%Y %r");
  EXPECT_EQ(
      log.takeLines(),
      (LogLines{
          {2, kNoPreferred}, {2, kNoSource}, {2, kNoMailCharset}, {2, kNoUtf8}, {2, kNoResource}}));
}

TEST_F(ActionUtilsTest, LooksSettingsUpInOrderWithoutFlags) {
  init();
  EXPECT_EQ(settings.lookups(), (Texts{"getString General-Notification/PreferredCharset",
                                       "getString MessageModule/DefaultSourceCharset",
                                       "getInt MessageModule/UseMailCharsetAsDestinationCharset",
                                       "getInt MessageModule/UseUTF8AsPreferCharsetForStamp",
                                       "getString general/locale"}));
}

TEST_F(ActionUtilsTest, WithAllSettingsSaysSo) {
  settings.set("General-Notification", "PreferredCharset", "iso-2022-jp");
  settings.set("MessageModule", "DefaultSourceCharset", "shift_jis");
  settings.set("MessageModule", "UseMailCharsetAsDestinationCharset", "1");
  settings.set("MessageModule", "UseUTF8AsPreferCharsetForStamp", "-7");
  settings.set("general", "locale", "ja");
  settings.set("general", "useKaviLocaleForNotificationTime", "yes");
  fakes::Resources::instance().set("IDG_KAVI_UTIL", "ja", "AU_NOTIFY_TIMEFORMAT", "%H:%M");
  EXPECT_TRUE(init());
  EXPECT_STREQ(ActionUtils::getDefaultDstCharset(), "iso-2022-jp");
  EXPECT_STREQ(ActionUtils::getLocalCharset(), "shift_jis");
  EXPECT_TRUE(ActionUtils::getUseMailCharsetFlag());
  EXPECT_TRUE(ActionUtils::getUseUTF8AsPreferForStampActionFlag());
  EXPECT_STREQ(ActionUtils::getUseKaviLocaleForNotifyTime(), "yes");
  EXPECT_STREQ(ActionUtils::getNotifyTimeFormat(), "%H:%M");
  EXPECT_EQ(log.takeLines(),
            (LogLines{{2, "Default destination (preferred) charset is iso-2022-jp."},
                      {2, "Default source charset is shift_jis."},
                      {2,
                       "Use mail charset is on. Mail modifications will attempt to use its charset "
                       "before default destination charset."},
                      {2, "Use UseUTF8AsPreferCharsetForStamp is on."}}));
}

TEST_F(ActionUtilsTest, AFlagOfZeroIsOffAndLogsNothing) {
  settings.set("MessageModule", "UseMailCharsetAsDestinationCharset", "0");
  settings.set("MessageModule", "UseUTF8AsPreferCharsetForStamp", "0");
  init();
  EXPECT_FALSE(ActionUtils::getUseMailCharsetFlag());
  EXPECT_FALSE(ActionUtils::getUseUTF8AsPreferForStampActionFlag());
  EXPECT_EQ(log.takeLines(), (LogLines{{2, kNoPreferred}, {2, kNoSource}, {2, kNoResource}}));
}

TEST_F(ActionUtilsTest, AnEmptyCharsetIsAValue) {
  settings.set("General-Notification", "PreferredCharset", "");
  init();
  EXPECT_STREQ(ActionUtils::getDefaultDstCharset(), "");
  EXPECT_EQ(log.takeLines().front(), (LogLine{2, "Default destination (preferred) charset is ."}));
}

struct TimeFormatCase {
  const char* locale;
  const char* resource;  // null: none
  const char* format;
  bool logged;
};

TEST_F(ActionUtilsTest, TimeFormatComesFromTheResourceElseFromTheLocale) {
  const TimeFormatCase kCases[] = {
      {"ja", nullptr, "%Y/%m/%d %T", true},     {"ja_JP", nullptr, "%m/%d/%Y %r", true},
      {"", nullptr, "%m/%d/%Y %r", true},       {"en", nullptr, "%m/%d/%Y %r", true},
      {"JA", nullptr, "%m/%d/%Y %r", true},     {"ja", "", "%Y/%m/%d %T", true},
      {"en", "", "%m/%d/%Y %r", true},          {"ja", "%d.%m.%Y", "%d.%m.%Y", false},
      {"ja_JP", "%d.%m.%Y", "%d.%m.%Y", false}, {"", "%d.%m.%Y", "%d.%m.%Y", false},
  };
  for (const TimeFormatCase& test : kCases) {
    SCOPED_TRACE(std::string(test.locale) + " " + test.format);
    fakes::Resources::instance().clear();
    if (test.resource != nullptr) {
      fakes::Resources::instance().set("IDG_KAVI_UTIL", test.locale, "AU_NOTIFY_TIMEFORMAT",
                                       test.resource);
    }
    settings.set("general", "locale", test.locale);
    init();
    EXPECT_STREQ(ActionUtils::getNotifyTimeFormat(), test.format);
    const LogLines lines = log.takeLines();
    EXPECT_EQ(lines.back() == (LogLine{2, kNoResource}), test.logged);
  }
}

TEST_F(ActionUtilsTest, TheBundleIsOpenedForTheLocaleAndDestroyed) {
  fakes::Resources::instance().clear();
  settings.set("general", "locale", "ja_JP");
  init();
  EXPECT_EQ(fakes::Resources::instance().calls(),
            (Texts{"init texts IDG_KAVI_UTIL 'ja_JP'", "get AU_NOTIFY_TIMEFORMAT", "destroy"}));
}

TEST_F(ActionUtilsTest, OnlyTheLocaleJaReadsTheTimeSwitch) {
  settings.set("general", "useKaviLocaleForNotificationTime", "yes");
  settings.set("general", "locale", "ja_JP");
  init();
  EXPECT_STREQ(ActionUtils::getUseKaviLocaleForNotifyTime(), "no");
  EXPECT_EQ(settings.lookups().back(), "getString general/locale");

  settings.set("general", "locale", "ja");
  init();
  EXPECT_STREQ(ActionUtils::getUseKaviLocaleForNotifyTime(), "yes");
  EXPECT_EQ(settings.lookups().back(), "getString general/useKaviLocaleForNotificationTime");
}

TEST_F(ActionUtilsTest, TheTimeSwitchStaysNoWhenItIsMissing) {
  settings.set("general", "locale", "ja");
  init();
  EXPECT_STREQ(ActionUtils::getUseKaviLocaleForNotifyTime(), "no");
}

TEST_F(ActionUtilsTest, ASecondStartBeginsFromTheInitialValues) {
  settings.set("General-Notification", "PreferredCharset", "iso-2022-jp");
  settings.set("MessageModule", "DefaultSourceCharset", "shift_jis");
  settings.set("MessageModule", "UseMailCharsetAsDestinationCharset", "1");
  settings.set("MessageModule", "UseUTF8AsPreferCharsetForStamp", "1");
  settings.set("general", "locale", "ja");
  settings.set("general", "useKaviLocaleForNotificationTime", "yes");
  init();
  log.takeLines();
  settings = fakes::Settings();
  init();
  EXPECT_STREQ(ActionUtils::getDefaultDstCharset(), "us-ascii");
  EXPECT_STREQ(ActionUtils::getLocalCharset(), "us-ascii");
  EXPECT_FALSE(ActionUtils::getUseMailCharsetFlag());
  EXPECT_FALSE(ActionUtils::getUseUTF8AsPreferForStampActionFlag());
  EXPECT_STREQ(ActionUtils::getUseKaviLocaleForNotifyTime(), "no");
  EXPECT_STREQ(ActionUtils::getNotifyTimeFormat(), "%m/%d/%Y %r");
}

TEST_F(ActionUtilsTest, ALookupThatThrowsCountsAsMissingAndDoesNotStopTheStart) {
  class Throwing : public Kavi::GlobalSetting {
   public:
    int getString(const char* /*key*/, std::string& /*value*/, const char* /*section*/,
                  int /*flags*/) override {
      throw std::runtime_error("no disk");
    }
    int getInt(const char* /*key*/, int& /*value*/, const char* /*section*/,
               int /*flags*/) override {
      throw 7;
    }
  };
  Throwing throwing;
  EXPECT_TRUE(ActionUtils::init(throwing, log));
  EXPECT_STREQ(ActionUtils::getDefaultDstCharset(), "us-ascii");
  EXPECT_STREQ(ActionUtils::getLocalCharset(), "us-ascii");
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "Kavi::GlobalSetting::getString failed: no disk"},
                                       {2, kNoPreferred},
                                       {1, "Kavi::GlobalSetting::getString failed: no disk"},
                                       {2, kNoSource},
                                       {1, "Kavi::GlobalSetting::getInt failed: unknown exception"},
                                       {2, kNoMailCharset},
                                       {1, "Kavi::GlobalSetting::getInt failed: unknown exception"},
                                       {2, kNoUtf8},
                                       {1, "Kavi::GlobalSetting::getString failed: no disk"},
                                       {2, kNoResource}}));
}

TEST_F(ActionUtilsTest, ALineIsWrittenOnlyUpToTheLogsLevel) {
  const struct {
    int level;
    LogLines lines;
  } kCases[] = {
      {-1, {}},
      {0, {}},
      {1, {{1, "one 1"}}},
      {2, {{1, "one 1"}, {2, "two b"}}},
      {3, {{1, "one 1"}, {2, "two b"}, {3, "three c"}}},
      {9, {{1, "one 1"}, {2, "two b"}, {3, "three c"}}},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.level);
    log.setLevel(test.level);
    ActionUtils::L1("one %d", 1);
    ActionUtils::L2("two %s", "b");
    ActionUtils::L3("three %c", 'c');
    EXPECT_EQ(log.takeLines(), test.lines);
  }
}

TEST_F(ActionUtilsTest, ALineIsCutTo2047Characters) {
  for (std::size_t length : {0u, 1u, 2046u, 2047u, 2048u, 5000u}) {
    const std::string text(length, 'x');
    ActionUtils::L3("%s", text.c_str());
    EXPECT_EQ(log.takeLines(), (LogLines{{3, text.substr(0, 2047)}}));
  }
}

TEST_F(ActionUtilsTest, PercentSignsInALineAreNotReadTwice) {
  ActionUtils::L1("%s", "100%s%n%d");
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "100%s%n%d"}}));
  EXPECT_EQ(log.formats(), (Texts{"%s"}));
}

TEST_F(ActionUtilsTest, ALogThatThrowsIsEndured) {
  const fakes::FaultPlan plan(fakes::FaultKind::PlatformThrow, 1);
  EXPECT_NO_THROW(ActionUtils::L1("lost"));
  EXPECT_TRUE(plan.fired());
  EXPECT_EQ(log.takeLines(), LogLines{});
}

}  // namespace
