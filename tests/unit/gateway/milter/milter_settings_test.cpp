#include "gateway/milter/milter_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/core/ini_settings.h"

namespace gateway::milter {
namespace {

using testing::HasSubstr;

bool read(const std::string& section, MilterSettings& settings, std::string& faults) {
  host::core::IniSettings ini;
  EXPECT_TRUE(ini.loadText("[milter]\n" + section, "test", faults));
  return settings.read(ini, faults);
}

TEST(MilterSettingsTest, TakesThePolicyFromAFileOrFromAStore) {
  MilterSettings settings;
  std::string faults;
  ASSERT_TRUE(read("", settings, faults));
  EXPECT_EQ(settings.policy, "/etc/kavi/policy.yaml");
  EXPECT_EQ(settings.store, "");
  ASSERT_TRUE(read("[store]\nlocation = sqlite:/s\n", settings, faults));
  EXPECT_EQ(settings.policy, "");
  EXPECT_EQ(settings.store, "sqlite:/s");
  EXPECT_FALSE(read("policy = /p\n[store]\nlocation = sqlite:/s\n", settings, faults));
  EXPECT_THAT(faults, HasSubstr("only one of them can hold the policy (remove one)"));
  EXPECT_FALSE(read("[store]\nlocation = sqlite:s\n", settings, faults));
  EXPECT_THAT(faults, HasSubstr("[store] location: the path is not absolute"));
  EXPECT_EQ(settings.store, "sqlite:/s") << "as it was";
}

TEST(MilterSettingsTest, ReadsEveryKey) {
  MilterSettings settings;
  std::string faults;
  ASSERT_TRUE(
      read("policy = /p\nsocket = unix:/s\nsocket_mode = 0600\nuser = u\nbeyond_limits = reject\n"
           "reinjection_listener = in\nmax_message_mb = 2\nmax_header_fields = 3\n"
           "max_header_kb = 4\nmax_recipients = 5\nmax_parts = 6\nmax_depth = 7\nmemory_kb = 8\n"
           "deadline_seconds = 9\nmetrics_port = 10\n",
           settings, faults))
      << faults;
  EXPECT_EQ(settings.policy, "/p");
  EXPECT_EQ(settings.socketPath(), "/s");
  EXPECT_EQ(settings.socketMode, 0600U);
  EXPECT_EQ(settings.user, "u");
  EXPECT_EQ(settings.reinjectionListener, "in");
  EXPECT_EQ(settings.beyondLimits, Answer::Kind::Reject);
  EXPECT_EQ(settings.limits.bytes, 2U << 20);
  EXPECT_EQ(settings.limits.headerFields, 3U);
  EXPECT_EQ(settings.limits.headerBytes, 4096U);
  EXPECT_EQ(settings.limits.recipients, 5U);
  EXPECT_EQ(settings.limits.parts, 6U);
  EXPECT_EQ(settings.limits.depth, 7U);
  EXPECT_EQ(settings.memoryBytes, 8192U);
  EXPECT_EQ(settings.deadlineSeconds, 9);
  EXPECT_EQ(settings.metricsPort, 10);
}

TEST(MilterSettingsTest, NamesEveryFaultAndKeepsWhatItHad) {
  for (const char* line :
       {"policy = relative", "socket = /s", "socket_mode = 9", "socket_mode = 01777",
        "beyond_limits = accept", "max_message_mb = 0", "max_parts = x", "deadline_seconds = -1"}) {
    MilterSettings settings;
    settings.user = "before";
    std::string faults;
    const std::string text = line;
    EXPECT_FALSE(read("user = after\n" + text + "\n", settings, faults)) << line;
    EXPECT_THAT(faults, HasSubstr("[milter] " + text.substr(0, text.find(' ')) + ": "));
    EXPECT_EQ(settings.user, "before");
  }
}

TEST(MilterSettingsTest, ASocketOfAnotherKindHasNoPath) {
  MilterSettings settings;
  settings.socket = "inet:8890@127.0.0.1";
  EXPECT_EQ(settings.socketPath(), "");
}

}  // namespace
}  // namespace gateway::milter
