#include "library/tokens/value_functions.h"

#include <clocale>
#include <cstdlib>
#include <filesystem>

#include "library/actions/disposition/quarantine.h"
#include "tests/fakes/fault_plan.h"
#include "tests/fakes/local_time.h"
#include "tests/unit/library/tokens/token_test.h"

// The C library's newlocale leaks its copy of LOCPATH, which only the tests below set.
extern "C" KAVI_API const char* __lsan_default_suppressions();  // NOLINT: the sanitizer's name
const char* __lsan_default_suppressions() { return "leak:__argz_add_sep\n"; }

namespace {

using fakes::LogLines;
using Kavi::ScanToken;

class ValueFunctionTest : public TokenTest {
 protected:
  std::string value = "old";
};

TEST_F(ValueFunctionTest, SubjectHintsAtTheLocalCharset) {
  fakes::Settings settings;
  settings.set("MessageModule", "DefaultSourceCharset", "koi8-r");
  configure(settings);
  msg.facts().subject = "Hello";
  msg.facts().charset = "iso-2022-jp";
  EXPECT_TRUE(library::fnSubject(tokens, msg, value));
  EXPECT_EQ(value, "Hello");
  EXPECT_EQ(msg.facts().calls, (Texts{"getSubject koi8-r (null)"}));
}

TEST_F(ValueFunctionTest, SubjectHintsAtTheMailCharsetWhenThatIsInUse) {
  fakes::Settings settings;
  settings.set("MessageModule", "UseMailCharsetAsDestinationCharset", "1");
  configure(settings);
  msg.facts().subject = "Hello";
  msg.facts().charset = "iso-2022-jp";
  EXPECT_TRUE(library::fnSubject(tokens, msg, value));
  EXPECT_EQ(msg.facts().calls, (Texts{"getCharset", "getSubject us-ascii iso-2022-jp"}));
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::MailCharset), "iso-2022-jp");

  tokens.set(ScanToken::MailCharset, "euc-jp");
  EXPECT_TRUE(library::fnSubject(tokens, msg, value));
  EXPECT_EQ(msg.facts().calls.back(), "getSubject us-ascii euc-jp") << "a stored value counts";
}

TEST_F(ValueFunctionTest, SubjectAnswersAsTheMessageLibraryDoes) {
  EXPECT_FALSE(library::fnSubject(tokens, msg, value));
  msg.facts().subject = "";
  EXPECT_TRUE(library::fnSubject(tokens, msg, value));
}

TEST_F(ValueFunctionTest, HeadersAreTheMailsOwn) {
  msg.facts().headers = "A: b\r\n";
  EXPECT_TRUE(library::fnHeaders(tokens, msg, value));
  EXPECT_EQ(value, "A: b\r\n");
}

TEST_F(ValueFunctionTest, ActionsAreMadeReadable) {
  EXPECT_TRUE(library::fnActions(tokens, msg, value));
  EXPECT_EQ(value, "<>") << "no list is the empty list";
  tokens.set(ScanToken::RawActions, "4");
  tokens.set(ScanToken::RawTotalActions, "7");
  EXPECT_TRUE(library::fnActions(tokens, msg, value));
  EXPECT_EQ(value, "<4>");
  EXPECT_TRUE(library::fnTActions(tokens, msg, value));
  EXPECT_EQ(value, "<7>");
}

TEST_F(ValueFunctionTest, ActionsFailWithThePlatform) {
  const fakes::FaultPlan plan(fakes::FaultKind::PlatformFailure, 1);
  EXPECT_FALSE(library::fnActions(tokens, msg, value));
}

TEST_F(ValueFunctionTest, QuarantinePathNeedsAnArea) {
  fakes::Settings settings;
  settings.set("general", "queue_quarantine", "/var/q");
  ActQuarantine::init(settings, log);
  msg.setId("abc123");
  EXPECT_TRUE(library::fnQAFilePath(tokens, msg, value));
  EXPECT_EQ(value, "");
  tokens.set(ScanToken::QuarantineArea, "");
  EXPECT_TRUE(library::fnQAFilePath(tokens, msg, value));
  EXPECT_EQ(value, "");
  tokens.set(ScanToken::QuarantineArea, "virus");
  EXPECT_TRUE(library::fnQAFilePath(tokens, msg, value));
  EXPECT_EQ(value, "/var/q/a/b/abc123.DF");
  tokens.set(ScanToken::QuarantinePath, "/where/it/is");
  EXPECT_EQ(replaced("%QUARANTINE_PATH%"), "/where/it/is") << "where it was stored counts";
}

TEST_F(ValueFunctionTest, DefaultCharsetIsThatOfTheSettings) {
  EXPECT_TRUE(library::fnDCharset(tokens, msg, value));
  EXPECT_EQ(value, "us-ascii");
  fakes::Settings settings;
  settings.set("General-Notification", "PreferredCharset", "utf-8");
  configure(settings);
  EXPECT_TRUE(library::fnDCharset(tokens, msg, value));
  EXPECT_EQ(value, "utf-8");
}

TEST_F(ValueFunctionTest, XMailIdIsLeftAloneWhenTheMailHasNone) {
  EXPECT_FALSE(library::fnXmailid(tokens, msg, value));
  EXPECT_EQ(value, "old");
  msg.facts().xMailId = "42";
  EXPECT_TRUE(library::fnXmailid(tokens, msg, value));
  EXPECT_EQ(value, "42");
}

TEST_F(ValueFunctionTest, MailCharsetIsEmptyWhenTheMailDeclaresNone) {
  EXPECT_TRUE(library::fnMCharset(tokens, msg, value));
  EXPECT_EQ(value, "");
  msg.facts().charset = "";
  EXPECT_TRUE(library::fnMCharset(tokens, msg, value));
  EXPECT_EQ(value, "");
  msg.facts().charset = "koi8-r";
  EXPECT_TRUE(library::fnMCharset(tokens, msg, value));
  EXPECT_EQ(value, "koi8-r");
}

TEST_F(ValueFunctionTest, ATokenTakesWhatAFunctionWroteBeforeItFailed) {
  msg.facts().subject = "half";
  msg.facts().subjectAnswer = false;
  EXPECT_FALSE(library::fnSubject(tokens, msg, value));
  EXPECT_EQ(replaced("<%SUBJECT%>"), "<half>");
}

/// Sets an environment variable for as long as it lives.
class Environment {
 public:
  Environment(const char* name, const char* value) : name_(name) { setenv(name, value, 1); }
  ~Environment() { unsetenv(name_); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  const char* name_;
};

class DateTimeTest : public ValueFunctionTest {
 protected:
  DateTimeTest() {
    time_.tm_year = 2024 - 1900;
    time_.tm_mon = 1;
    time_.tm_mday = 29;
    time_.tm_wday = 4;
    time_.tm_yday = 59;
    time_.tm_hour = 15;
    time_.tm_min = 4;
    time_.tm_sec = 5;
  }
  void useFormat(const std::string& format) {
    fakes::Resources::instance().set("IDG_KAVI_UTIL", "", "AU_NOTIFY_TIMEFORMAT", format);
    fakes::Settings none;
    configure(none);
  }
  std::string now() {
    const fakes::LocalTime clock(&time_);
    EXPECT_TRUE(library::fnDateTime(tokens, msg, value));
    return value;
  }

  std::tm time_{};
};

TEST_F(DateTimeTest, UsesTheNotificationTimeFormat) {
  EXPECT_EQ(now(), "02/29/2024 03:04:05 PM");
  useFormat("at %H:%M on %F");
  EXPECT_EQ(now(), "at 15:04 on 2024-02-29");
}

TEST_F(DateTimeTest, IsThePresentLocalTime) {
  useFormat("%s");
  const std::time_t before = std::time(nullptr);
  EXPECT_TRUE(library::fnDateTime(tokens, msg, value));
  EXPECT_LE(before, std::stol(value));
  EXPECT_LE(std::stol(value), std::time(nullptr));
}

TEST_F(DateTimeTest, FallsBackWhenTheFormatYieldsNothing) {
  useFormat("%z");
  time_.tm_isdst = -1;  // unknown: so is the offset, which is then written as nothing
  EXPECT_EQ(now(), "02/29/2024 03:04:05 PM");
}

TEST_F(DateTimeTest, FallsBackWhenTheTextDoesNotFit) {
  useFormat(std::string(255, 'x'));
  EXPECT_EQ(now(), std::string(255, 'x'));
  fakes::Resources::instance().clear();
  useFormat(std::string(256, 'x'));
  EXPECT_EQ(now(), "02/29/2024 03:04:05 PM");
}

TEST_F(DateTimeTest, IsEmptyWhenThereIsNoLocalTime) {
  const fakes::LocalTime clock(nullptr);
  EXPECT_FALSE(library::fnDateTime(tokens, msg, value));
  EXPECT_EQ(value, "");
  tokens.set(ScanToken::DateTime, "stored");
  useKaviLocaleForTime();
  EXPECT_EQ(replaced("%DATE&TIME%"), "stored") << "nothing new, so the old one stays";
}

TEST_F(DateTimeTest, IsJapaneseUnderTheYesSwitch) {
  const Environment locales("LOCPATH", KAVI_TEST_LOCALES);
  useKaviLocaleForTime();
  const std::string before = std::setlocale(LC_ALL, nullptr);
  EXPECT_EQ(now(),
            "2024\xE5\xB9\xB4"
            "02\xE6\x9C\x88"
            "29\xE6\x97\xA5 15\xE6\x99\x82"
            "04\xE5\x88\x86"
            "05\xE7\xA7\x92");
  EXPECT_EQ(std::setlocale(LC_ALL, nullptr), before) << "the process keeps its own";
}

TEST_F(DateTimeTest, UsesThePresentLocaleWhereTheJapaneseOneIsMissing) {
  const Environment locales("LOCPATH", "/nonexistent");
  useKaviLocaleForTime();
  EXPECT_EQ(now(), "Thu Feb 29 15:04:05 2024");
}

TEST_F(DateTimeTest, NeedsYesInSoManyLetters) {
  for (const char* word : {"no", "YES", "yes ", "1", ""}) {
    fakes::Settings settings;
    settings.set("general", "locale", "ja");
    settings.set("general", "useKaviLocaleForNotificationTime", word);
    configure(settings);
    EXPECT_EQ(now(), "2024/02/29 15:04:05") << word;
  }
}

TEST_F(DateTimeTest, UsesTheFormatWhenTheJapaneseTextCannotBeConverted) {
  const Environment locales("LOCPATH", "/nonexistent");
  useKaviLocaleForTime();
  {
    const fakes::FaultPlan plan(fakes::FaultKind::PlatformFailure, 1);
    EXPECT_EQ(now(), "2024/02/29 15:04:05");
    EXPECT_TRUE(plan.fired());
  }
  EXPECT_EQ(log.takeLines(),
            (LogLines{{1,
                       "Cannot convert Japanese DATE string from EUC-JP to UTF8, error 5 "
                       "('malformed text') with string: Thu Feb 29 15:04:05 2024."}}));
}

}  // namespace
