// Values of settings that their readers would pass over.
#include "gateway/engine/settings_check.h"

#include <gtest/gtest.h>

#include <string>

#include "host/core/ini_settings.h"

namespace {

std::string faultsOf(const std::string& text) {
  host::core::IniSettings settings;
  std::string error;
  EXPECT_TRUE(settings.loadText(text, "text", error)) << error;
  return gateway::engine::settingsFaults(settings);
}

struct Case {
  const char* title;
  const char* section;
  const char* key;
  const char* good;
  const char* bad;
  const char* fault;
};

class SettingsCheck : public testing::TestWithParam<Case> {};

TEST_P(SettingsCheck, NamesWhatIsWrongAndWhatToWrite) {
  const Case& one = GetParam();
  const std::string head = "[" + std::string(one.section) + "]\n" + one.key + " = ";
  EXPECT_EQ(faultsOf(head + one.good + "\n"), "");
  EXPECT_EQ(faultsOf(head + one.bad + "\n"), "[" + std::string(one.section) + "] " + one.key +
                                                 ": '" + one.bad + "' " + one.fault + "\n");
}

constexpr char kNoFlag[] = "is no number (write 1 for yes, 0 for no)";
constexpr char kNoNumber[] = "is no number up to 2147483647";
constexpr char kNoPath[] = "is no absolute path (write one that begins with \"/\")";
constexpr char kNoCharset[] =
    "is no charset that is known here (write its IANA name, such as utf-8)";

INSTANTIATE_TEST_SUITE_P(
    All, SettingsCheck,
    testing::Values(
        Case{"Level", "log", "Level", "3", "4", "is not 0, 1, 2 or 3"},
        Case{"Format", "log", "Format", "json", "JSON", "is neither text nor json"},
        Case{"Target", "log", "Target", "syslog", "file", "is neither stderr nor syslog"},
        Case{"Quarantine", "general", "queue_quarantine", "/q", "q", kNoPath},
        Case{"Archive", "general", "queue_archive", "/a", "./a", kNoPath},
        Case{"BlankLines", "general", "NumOfBlankLineBeforeStampMessage", "-1", "1001",
             "is no number up to 1000"},
        Case{"LineLimit", "MessageModule", "DisclaimerLineLimit", "-3", "70 bytes", kNoNumber},
        Case{"Flag", "MessageModule", "TagDirectly", "0x1", "yes", kNoFlag},
        Case{"HideRecipients", "General-Notification", "NotificationHideRecipients", "0", "no",
             kNoFlag},
        Case{"SourceCharset", "MessageModule", "DefaultSourceCharset", "shift_jis", "uft-8",
             kNoCharset},
        Case{"Charset", "General-Notification", "PreferredCharset", "UTF-8", "utf8mb4", kNoCharset},
        Case{"TrapServer", "General-Notification", "SNMPServer", "[::1]:162", "a:b:c",
             "is no server (write host, host:port or [IPv6]:port)"},
        Case{"ScannerId", "kavi_manager", "scanner_id", "2147483647", "2147483648", kNoNumber}),
    [](const auto& test) { return std::string(test.param.title); });

TEST(SettingsFaults, AreListedAll) {
  EXPECT_EQ(faultsOf("[log]\nLevel = x\n[kavi_manager]\nscanner_id = x\n"),
            "[log] Level: 'x' is not 0, 1, 2 or 3\n"
            "[kavi_manager] scanner_id: 'x' is no number up to 2147483647\n");
}

// What a library of its own rules does with such values is no fault.
TEST(SettingsFaults, AreNoneOfWhatIsDefined) {
  EXPECT_EQ(faultsOf("[General-Notification]\nSNMPVersion = SNMPV2C\nSNMPServer =\n"
                     "[MessageModule]\nDisclaimerLineLimit = 5000\nTagDirectly = 7\n"),
            "");
}

}  // namespace
