#include "host/core/ini_settings.h"

#include <gtest/gtest.h>

#include <climits>

#include "tests/unit/host/core/temp_folder.h"

namespace {

using host::core::IniSettings;

TEST(IniSettings, IsEmptyWhenNew) {
  IniSettings settings;
  std::string value = "before";
  int number = 42;
  EXPECT_NE(settings.getString("locale", value, "general", 0), 0);
  EXPECT_NE(settings.getInt("locale", number, "general", 0), 0);
  EXPECT_EQ(value, "before");
  EXPECT_EQ(number, 42);
}

TEST(IniSettings, AnswersFromFileAndText) {
  const testing_host::TempFolder folder;
  testing_host::writeFile(folder / "kavi.ini", "[general]\nlocale=ja\n");
  IniSettings settings;
  std::string error = "before";
  ASSERT_TRUE(settings.loadFile(folder / "kavi.ini", error)) << error;
  EXPECT_EQ(error, "");
  std::string value;
  EXPECT_EQ(settings.getString("locale", value, "general", 0), 0);
  EXPECT_EQ(value, "ja");
  ASSERT_TRUE(settings.loadText("[general]\nlocale=en\n", "text", error)) << error;
  EXPECT_EQ(settings.getString("locale", value, "general", 0), 0);
  EXPECT_EQ(value, "en");
  EXPECT_FALSE(settings.loadText("junk", "text", error));
  EXPECT_FALSE(settings.loadFile(folder / "missing.ini", error));
  EXPECT_EQ(settings.getString("locale", value, "general", 0), 0);
}

TEST(IniSettings, CountsNullNamesAsMissing) {
  IniSettings settings;
  settings.override("general", "locale", "ja");
  std::string value;
  int number = 0;
  EXPECT_NE(settings.getString(nullptr, value, "general", 0), 0);
  EXPECT_NE(settings.getString("locale", value, nullptr, 0), 0);
  EXPECT_NE(settings.getInt(nullptr, number, "general", 0), 0);
  EXPECT_NE(settings.getInt("locale", number, nullptr, 0), 0);
}

TEST(IniSettings, KeepsOverridesWhateverIsLoaded) {
  IniSettings settings;
  std::string error;
  settings.override("General", "Locale", "ja");
  ASSERT_TRUE(settings.loadText("[general]\nlocale=en\nother=1\n", "text", error));
  std::string value;
  EXPECT_EQ(settings.getString("locale", value, "general", 0), 0);
  EXPECT_EQ(value, "ja");
  EXPECT_EQ(settings.getString("other", value, "general", 0), 0);
  settings.override("general", "locale", "");
  EXPECT_EQ(settings.getString("locale", value, "general", 0), 0);
  EXPECT_EQ(value, "");
}

struct Number {
  const char* text;
  bool found;
  int value;
};

class IniSettingsInt : public ::testing::TestWithParam<Number> {};

TEST_P(IniSettingsInt, IsReadWholeOrCountsAsMissing) {
  IniSettings settings;
  settings.override("s", "n", GetParam().text);
  int value = 42;
  EXPECT_EQ(settings.getInt("n", value, "s", 0) == 0, GetParam().found) << GetParam().text;
  EXPECT_EQ(value, GetParam().found ? GetParam().value : 42) << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(
    Table, IniSettingsInt,
    ::testing::Values(Number{"0", true, 0}, Number{"1", true, 1}, Number{"-7", true, -7},
                      Number{"007", true, 7}, Number{"2147483647", true, INT_MAX},
                      Number{"-2147483648", true, INT_MIN}, Number{"0x1F", true, 31},
                      Number{"0X7fffffff", true, INT_MAX}, Number{"", false, 0},
                      Number{"2147483648", false, 0}, Number{"0x80000000", false, 0},
                      Number{"99999999999999999999", false, 0}, Number{"0x", false, 0},
                      Number{"0x-1", false, 0}, Number{"x1", false, 0}, Number{"1 ", false, 0},
                      Number{" 1", false, 0}, Number{"1x", false, 0}, Number{"+1", false, 0},
                      Number{"yes", false, 0}, Number{"1.5", false, 0}));

}  // namespace
