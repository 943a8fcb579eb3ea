// What ActStamp reads at start-up.
#include "tests/unit/library/actions/modification/stamp_test.h"

namespace {

using fakes::LogLines;

constexpr char kMessageModule[] = "MessageModule";

class StampInitTest : public StampTest {
 protected:
  LogLines init() {
    log.takeLines();
    EXPECT_TRUE(ActStamp::init(settings, log));
    return log.takeLines();
  }
  /// Whether a line of \p length bytes is divided now.
  bool divides(std::size_t length) {
    std::string text(length, 'a');
    const bool divided = action.modifyIfHasLimitLine(text, "us-ascii");
    log.takeLines();
    return divided;
  }
};

TEST_F(StampInitTest, ReadsItsSettingsInOrder) {
  init();
  EXPECT_EQ(settings.lookups(), (Texts{"getInt MessageModule/IgnoreInsertError",
                                       "getInt MessageModule/DisclaimerLineLimit",
                                       "getInt general/NumOfBlankLineBeforeStampMessage",
                                       "getInt MessageModule/InsertStampAsAttachment",
                                       "getInt MessageModule/PreferCharsetAsUTF8"}));
  EXPECT_TRUE(locators().empty());
}

TEST_F(StampInitTest, LogsOnlyWhatIsStated) {
  EXPECT_EQ(init(), (LogLines{{3, "NumOfBlankLineBeforeStampMessage:0"}}));
  settings.set("general", "NumOfBlankLineBeforeStampMessage", "3");
  settings.set(kMessageModule, "IgnoreInsertError", "7");
  EXPECT_EQ(init(), (LogLines{{2, "Ignore stamp insertion failure"},
                              {3, "NumOfBlankLineBeforeStampMessage:3"}}));
}

TEST_F(StampInitTest, AFlagThatWasSetStaysSetAndIsLoggedAgain) {
  settings.set(kMessageModule, "IgnoreInsertError", "1");
  init();
  fakes::Settings none;
  EXPECT_TRUE(ActStamp::init(none, log));
  EXPECT_EQ(log.takeLines(2), Texts{"Ignore stamp insertion failure"});
}

TEST_F(StampInitTest, ClampsTheLineLimitFromAboveOnly) {
  EXPECT_FALSE(divides(992)) << "990 as loaded";
  EXPECT_TRUE(divides(993));
  settings.set(kMessageModule, "DisclaimerLineLimit", "5000");
  init();
  EXPECT_FALSE(divides(1000));
  EXPECT_TRUE(divides(1001));
  for (const char* off : {"-3", "0"}) {
    settings.set(kMessageModule, "DisclaimerLineLimit", off);
    init();
    EXPECT_FALSE(divides(5000)) << off;
  }
  settings.set(kMessageModule, "DisclaimerLineLimit", "10");
  init();
  fakes::Settings none;
  ActStamp::init(none, log);
  EXPECT_TRUE(divides(13)) << "a missing key leaves the limit as it was";
  EXPECT_FALSE(divides(12));
}

TEST_F(StampInitTest, BlankLinesAreNeverNegativeAndGoBackToNone) {
  settings.set("general", "NumOfBlankLineBeforeStampMessage", "-4");
  EXPECT_EQ(init(), (LogLines{{3, "NumOfBlankLineBeforeStampMessage:0"}}));
  settings.set("general", "NumOfBlankLineBeforeStampMessage", "2");
  init();
  fakes::Settings none;
  ActStamp::init(none, log);
  EXPECT_EQ(log.takeLines(), (LogLines{{3, "NumOfBlankLineBeforeStampMessage:0"}}));
}

TEST_F(StampInitTest, SwitchesStampsToAttachmentsButNeverBack) {
  for (const char* off : {"0", "-1"}) {
    settings.set(kMessageModule, "InsertStampAsAttachment", off);
    init();
    EXPECT_TRUE(locators().empty()) << off;
  }
  for (const char* on : {"1", "2"}) {
    settings.set(kMessageModule, "InsertStampAsAttachment", on);
    init();
  }
  EXPECT_EQ(locators(), (Texts{"stamps as attachments 1", "stamps as attachments 1"}));
}

// A platform that reports the key as found without writing it: the last setting then takes the
// value of the one before, the others that of a fresh 0.
TEST_F(StampInitTest, OnlyTheLastReadingBeginsWithWhatTheOneBeforeLeft) {
  class Silent : public Kavi::GlobalSetting {
   public:
    int getString(const char* /*key*/, std::string& /*value*/, const char* /*section*/,
                  int /*flags*/) override {
      return 1;
    }
    int getInt(const char* key, int& value, const char* /*section*/, int /*flags*/) override {
      begins.push_back(value);
      if (std::string(key) == "InsertStampAsAttachment") {
        value = 5;
      } else if (std::string(key) != "PreferCharsetAsUTF8") {
        value = 3;
      }
      return 0;
    }
    std::vector<int> begins;
  };
  Silent silent;
  EXPECT_TRUE(ActStamp::init(silent, log));
  EXPECT_EQ(silent.begins, (std::vector<int>{0, 0, 0, 0, 5}));
  EXPECT_TRUE(take());
  EXPECT_EQ(insertions().front().substr(0, 16), "2 20 utf-8 utf-8") << "UTF-8 is preferred now";
  log.takeLines();
}

}  // namespace
