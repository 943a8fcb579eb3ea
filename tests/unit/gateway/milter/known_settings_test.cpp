// The settings that the programs know, against those that they read.
#include "gateway/engine/known_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gateway/milter/milter_settings.h"
#include "host/core/log.h"
#include "host/delivery/delivery_settings.h"
#include "library/framework/init_action_lib.h"

namespace {

using gateway::engine::isKnownSetting;
using gateway::engine::unknownSettings;
using host::core::IniSettings;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

IniSettings settingsOf(const std::string& text) {
  IniSettings settings;
  std::string error;
  EXPECT_TRUE(settings.loadText(text, "kavi.ini", error)) << error;
  return settings;
}

// Has every value, and says what was asked for that is not known.
class AskedSettings final : public Kavi::GlobalSetting {
 public:
  int getString(const char* key, std::string& value, const char* section, int) override {
    note(section, key);
    value = "1";
    return 0;
  }
  int getInt(const char* key, int& value, const char* section, int) override {
    note(section, key);
    value = 1;
    return 0;
  }
  std::size_t count = 0;
  std::vector<std::string> unknown;

 private:
  void note(const std::string& section, const std::string& key) {
    ++count;
    if (!isKnownSetting(section, key)) unknown.push_back("[" + section + "] " + key);
  }
};

TEST(KnownSettings, AreAllThatIsRead) {
  AskedSettings settings;
  host::core::LogOptions quiet;
  quiet.level = 0;
  host::core::ProcessLog log(quiet);
  InitActionLib(settings, log);
  EXPECT_GT(settings.count, 20u);
  std::string faults;
  gateway::milter::MilterSettings().read(settings, faults);
  host::delivery::DeliverySettings delivery;
  delivery.read(settings, faults);
  EXPECT_GT(settings.count, 60u);
  EXPECT_THAT(settings.unknown, IsEmpty());
  for (const char* key : {"tls", "verify", "ca_file", "user", "password_file"}) {
    EXPECT_TRUE(isKnownSetting("delivery mx.example.org:25", key));
  }
  for (const char* key : {"Level", "Format", "Target"}) EXPECT_TRUE(isKnownSetting("log", key));
  EXPECT_TRUE(isKnownSetting("STORE", "Location"));
}

TEST(UnknownSettings, AreNamedWithWhatWasMeant) {
  EXPECT_THAT(
      unknownSettings(settingsOf("[General]\nQUEUE_quarantine = /q\n[delivery]\nscan_prot = 25\n"
                                 "[delivery mx:25]\ntls = off\nscan_port = 1\n[mliter]\nuser = x\n"
                                 "policy = /p\n[log]\ncolour = red\n")),
      ElementsAre("line 4: unknown key 'scan_prot' in section 'delivery' (did you mean "
                  "'scan_port'?)",
                  "line 7: unknown key 'scan_port' in section 'delivery HOST:PORT' (it belongs "
                  "into section 'delivery')",
                  "line 12: unknown key 'colour' in section 'log' (known: Level, Format, Target)",
                  "line 10: unknown section 'mliter' (did you mean 'milter'?)"));
  EXPECT_THAT(unknownSettings(settingsOf("before = 1\n[nothing like it]\nx = 1\n")),
              ElementsAre("line 1: unknown section '' (known: general, MessageModule, "
                          "General-Notification, kavi_manager, log, store, milter, delivery)",
                          "line 3: unknown section 'nothing like it' (known: general, "
                          "MessageModule, General-Notification, kavi_manager, log, store, milter, "
                          "delivery)"));
  EXPECT_THAT(unknownSettings(IniSettings()), IsEmpty());
}

TEST(TrailingComments, AreNamedWithTheirLine) {
  IniSettings settings = settingsOf(
      "[milter]\n# a comment\nsocket = unix:/s  # here\nuser = kavi\t; or root\n"
      "policy = /etc/a#b;c\n[kind]\ncolour = #fff\n");
  EXPECT_THAT(
      gateway::engine::trailingComments(settings),
      ElementsAre("line 3: what stands behind the value of 'socket', from '#' on, is taken as a "
                  "part of it (put comments on lines of their own)",
                  "line 4: what stands behind the value of 'user', from ';' on, is taken as a part "
                  "of it (put comments on lines of their own)"));
  // With what nobody reads.
  EXPECT_EQ(gateway::engine::doubtfulSettings(settings).size(), 3u);
}

}  // namespace
