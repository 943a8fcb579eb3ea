// The sweep over tokens and the quarantine area's record.
#include <vector>

#include "library/actions/disposition/quarantine.h"
#include "library/namedobj/quarantine_area.h"
#include "library/tokens/action_utils.h"
#include "tests/unit/library/fault_sweep.h"

namespace {

using namespace sweep;
using Kavi::ScanToken;

// Longer than a string's own buffer, so that every copy allocates.
const std::string kText = "a text that needs memory of its own";

/// A message about which everything can be said.
void fill(Trial& trial) {
  fakes::MessageFacts& facts = trial.msg.facts();
  facts.headers = facts.charset = facts.subject = facts.xMailId = kText;
  trial.tokens.set(ScanToken::Sender, kText);
  trial.tokens.set(ScanToken::FileName, kText + "\n" + kText);
  trial.tokens.set(ScanToken::RawActions, kText);
  trial.tokens.set(ScanToken::QuarantineArea, kText);
}

/// Library settings that hold for one operation, with the maps built.
class Start {
 public:
  explicit Start(bool japaneseTime = false) {
    fakes::Settings settings;
    settings.set("MessageModule", "UseMailCharsetAsDestinationCharset", "1");
    if (japaneseTime) {
      settings.set("general", "locale", "ja");
      settings.set("general", "useKaviLocaleForNotificationTime", "yes");
    }
    start(settings);
    ActionUtils::_build_token_string_table();
  }
  ~Start() {
    fakes::Settings none;
    start(none);
  }
  Start(const Start&) = delete;
  Start& operator=(const Start&) = delete;

 private:
  static void start(fakes::Settings& settings) {
    static fakes::CapturingLog quiet(0);
    ActionUtils::init(settings, quiet);
  }
};

bool computes(Trial& trial, const char* token, const std::string& expected) {
  const Start start;
  fill(trial);
  const char* value = "before";
  trial.run([&] { value = ActionUtils::getTokenValue(trial.tokens, token, trial.msg); });
  EXPECT_TRUE(value == nullptr || *value == '\0' || value == expected) << value;
  return value != nullptr && value == expected;
}

const Operation kOperations[] = {
    {"ActionUtils::_build_token_string_table",
     [](Trial& trial) {
       const Start start;
       trial.run([] { ActionUtils::_build_token_string_table(); });
       trial.tokens.set(ScanToken::SuspiciousUrl, kText);
       const char* value = ActionUtils::getTokenValue(trial.tokens, "%SUSPICIOUS_URL%", trial.msg);
       EXPECT_STREQ(value, kText.c_str()) << "the maps are the new or the former ones, whole";
       return true;
     }},
    {"ActionUtils::getTokenValue, stored",
     [](Trial& trial) { return computes(trial, "%SENDER%", kText); }},
    {"ActionUtils::getTokenValue, list",
     [](Trial& trial) { return computes(trial, "%FILENAME%", kText + ", " + kText); }},
    {"ActionUtils::getTokenValue, subject",
     [](Trial& trial) { return computes(trial, "%SUBJECT%", kText); }},
    {"ActionUtils::getTokenValue, headers",
     [](Trial& trial) { return computes(trial, "%HEADERS%", kText); }},
    {"ActionUtils::getTokenValue, actions",
     [](Trial& trial) { return computes(trial, "%ACTION%", "<" + kText + ">"); }},
    {"ActionUtils::getTokenValue, other actions",
     [](Trial& trial) { return computes(trial, "%TACTION%", "<>"); }},
    {"ActionUtils::getTokenValue, charset of the mail",
     [](Trial& trial) { return computes(trial, "%MAILCHARSET%", kText); }},
    {"ActionUtils::getTokenValue, id of the mail",
     [](Trial& trial) { return computes(trial, "%XMAILID%", kText); }},
    {"ActionUtils::getTokenValue, path",
     [](Trial& trial) {
       trial.msg.setId(std::string(36, 'x'));
       std::string path;
       ActQuarantine::_genQuarantinePath(path, &trial.msg);
       return computes(trial, "%QUARANTINE_PATH%", path);
     }},
    {"ActionUtils::getTokenValue, no value",
     [](Trial& trial) { return computes(trial, "%ORIGINALMAILID%", ""); }},
    {"ActionUtils::getTokenValue, date",
     [](Trial& trial) {
       const Start start(true);
       const char* value = nullptr;
       trial.run(
           [&] { value = ActionUtils::getTokenValue(trial.tokens, "%DATE&TIME%", trial.msg); });
       return value != nullptr && *value != '\0';
     }},
    {"ActionUtils::replaceTokens",
     [](Trial& trial) {
       const Start start;
       fill(trial);
       const std::string text = "1 %SENDER% 2 %SUBJECT% 3 %HEADERS% 4 %FOO% 5 %ACTION% 6";
       std::string result = "before";
       bool replaced = false;
       trial.run(
           [&] { replaced = ActionUtils::replaceTokens(trial.tokens, text, trial.msg, result); });
       if (!replaced) {
         EXPECT_EQ(result, "") << "never half a text";
         return false;
       }
       const std::string whole =
           "1 " + kText + " 2 " + kText + " 3 " + kText + " 4 %FOO% 5 <" + kText + "> 6";
       // A value that could not be computed is replaced by nothing; only a platform that says so
       // may bring that about.
       EXPECT_TRUE(result == whole || trial.kind() == FaultKind::PlatformFailure) << result;
       return result == whole;
     }},
    {"ActQuarantine::_genQuarantinePath",
     [](Trial& trial) {
       trial.msg.setId(std::string(36, 'x'));
       std::string path = "before";
       bool result = false;
       trial.run([&] { result = ActQuarantine::_genQuarantinePath(path, &trial.msg); });
       EXPECT_EQ(path == "before", !result);
       return result;
     }},
    {"uiQuarantineArea::construct",
     [](Trial& trial) {
       const std::string setting = "30:" + std::to_string(kText.size()) + ":" + kText + ":";
       uiQuarantineArea area;
       bool result = false;
       trial.run([&] {
         result = area.construct(setting.c_str(), static_cast<unsigned int>(setting.size()));
       });
       EXPECT_EQ(area.agingDays, 30u);
       EXPECT_EQ(area.areaName, result ? kText : "");
       return result;
     }},
    {"uiQuarantineArea::serialize",
     [](Trial& trial) {
       uiQuarantineArea area;
       area.areaName = std::string(2000, 'n');
       std::string text;
       trial.run([&] { text = area.serialize(); });
       EXPECT_TRUE(text.empty() || text == "0:2000:" + area.areaName + ":");
       return !text.empty();
     }},
};

INSTANTIATE_TEST_SUITE_P(Tokens, FaultSweepTest, each(kOperations), nameOf);

}  // namespace
