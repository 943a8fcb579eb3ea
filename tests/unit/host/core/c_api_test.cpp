#include "host/core/c_api.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "library/platform/global_setting.h"
#include "library/platform/log_msg.h"
#include "tests/unit/host/core/temp_folder.h"

extern "C" int openSettingsFromC(const char* path, char* error, size_t errorSize);

namespace {

TEST(CApi, GivesSettingsThatAreGlobalSettings) {
  const testing_host::TempFolder folder;
  testing_host::writeFile(folder / "kavi.ini", "[general]\nlocale=ja\n");
  std::array<char, 64> error{'x'};
  kavi_settings* settings =
      kavi_settings_open((folder / "kavi.ini").c_str(), error.data(), error.size());
  ASSERT_NE(settings, nullptr);
  EXPECT_STREQ(error.data(), "");
  std::string value;
  EXPECT_EQ(
      reinterpret_cast<Kavi::GlobalSetting*>(settings)->getString("locale", value, "general", 0),
      0);
  EXPECT_EQ(value, "ja");
  kavi_settings_close(settings);
}

TEST(CApi, GivesEmptySettingsForANullPath) {
  kavi_settings* settings = kavi_settings_open(nullptr, nullptr, 0);
  ASSERT_NE(settings, nullptr);
  std::string value;
  EXPECT_NE(
      reinterpret_cast<Kavi::GlobalSetting*>(settings)->getString("locale", value, "general", 0),
      0);
  kavi_settings_close(settings);
}

TEST(CApi, CutsTheReasonToFit) {
  const testing_host::TempFolder folder;
  std::array<char, 1024> whole{};
  EXPECT_EQ(kavi_settings_open((folder / "missing.ini").c_str(), whole.data(), whole.size()),
            nullptr);
  EXPECT_THAT(whole.data(), ::testing::HasSubstr("cannot be read: No such file"));
  std::array<char, 8> cut{};
  EXPECT_EQ(kavi_settings_open((folder / "missing.ini").c_str(), cut.data(), cut.size()), nullptr);
  EXPECT_EQ(std::string(cut.data()), std::string(whole.data()).substr(0, 7));
  EXPECT_EQ(kavi_settings_open((folder / "missing.ini").c_str(), nullptr, 0), nullptr);
}

TEST(CApi, GivesALogThatIsALogMsg) {
  kavi_log* log = kavi_log_open(2);
  ASSERT_NE(log, nullptr);
  EXPECT_EQ(reinterpret_cast<Kavi::LogMsg*>(log)->getLevel(), 2);
  kavi_log_close(log);
}

TEST(CApi, AcceptsNullWhereItCloses) {
  kavi_settings_close(nullptr);
  kavi_log_close(nullptr);
}

TEST(CApi, WorksFromC) {
  std::array<char, 64> error{};
  EXPECT_EQ(openSettingsFromC(nullptr, error.data(), error.size()), 1);
  EXPECT_EQ(openSettingsFromC("/nowhere/kavi.ini", error.data(), error.size()), 0);
  EXPECT_STRNE(error.data(), "");
}

}  // namespace
