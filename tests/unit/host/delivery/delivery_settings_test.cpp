#include "host/delivery/delivery_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/core/ini_settings.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using host::core::IniSettings;
using host::delivery::DeliverySettings;
using host::delivery::SmtpDestination;
using host::delivery::SmtpTls;
using ::testing::HasSubstr;
using testing_host::TempFolder;

class DeliverySettingsTest : public ::testing::Test {
 protected:
  bool read(const std::string& text) {
    EXPECT_TRUE(ini_.loadText(text, "test", error_)) << error_;
    error_.clear();
    return settings_.read(ini_, error_);
  }

  IniSettings ini_;
  DeliverySettings settings_;
  std::string error_;
};

TEST_F(DeliverySettingsTest, HasDefaults) {
  ASSERT_TRUE(read("")) << error_;
  EXPECT_FALSE(settings_.scan.isSet());
  EXPECT_FALSE(settings_.plain.isSet());
  EXPECT_EQ(settings_.scan.port, 25);
  EXPECT_EQ(settings_.scan.tls, SmtpTls::Off);
  EXPECT_NE(settings_.helloName, "");
  EXPECT_EQ(settings_.timeouts.connectMs, 30'000);
  EXPECT_EQ(settings_.timeouts.commandMs, 300'000);
  EXPECT_EQ(settings_.timeouts.totalMs, 1'800'000);
  EXPECT_EQ(settings_.handoffDeadlineMs, 60'000);
  EXPECT_EQ(settings_.retry.firstPause, 60);
  EXPECT_EQ(settings_.retry.longestPause, 3600);
  EXPECT_EQ(settings_.retry.giveUpAfter, 432'000);
  EXPECT_EQ(settings_.stateFolder, "/var/lib/kavi");
  EXPECT_EQ(settings_.sealKeyPath(), "/var/lib/kavi/reprocess.keys");
}

TEST_F(DeliverySettingsTest, KeepsTheKeysInTheStateFolder) {
  ASSERT_TRUE(read("[delivery]\nstate_folder = /state\n")) << error_;
  EXPECT_EQ(settings_.sealKeyPath(), "/state/reprocess.keys");
}

TEST_F(DeliverySettingsTest, RefusesAStateFolderThatDependsOnWhereItIsRead) {
  EXPECT_FALSE(read("[delivery]\nstate_folder = state\n"));
  EXPECT_THAT(error_, HasSubstr("[delivery] state_folder: 'state' is no absolute path"));
}

TEST_F(DeliverySettingsTest, ReadsEverything) {
  TempFolder temp;
  testing_host::writeFile(temp / "password", "s3cret\nnot this\n");
  ASSERT_TRUE(
      read("[delivery]\nhello_name = gw.example.org\nscan_host = 127.0.0.1\n"
           "scan_port = 10025\nplain_host = mx.example.org\nplain_tls = starttls\n"
           "plain_ca_file = /etc/ca.pem\nplain_user = kavi\nplain_password_file = " +
           (temp / "password") +
           "\nconnect_timeout_seconds = 3\ncommand_timeout_seconds = 4\n"
           "total_timeout_seconds = 5\nhandoff_deadline_seconds = 6\n"
           "retry_first_seconds = 7\nretry_longest_seconds = 8\ngive_up_seconds = 9\n"
           "seal_key_file = /var/keys\n"))
      << error_;
  EXPECT_EQ(settings_.helloName, "gw.example.org");
  EXPECT_EQ(settings_.scan.text(), "127.0.0.1:10025");
  EXPECT_EQ(settings_.plain.text(), "mx.example.org:25");
  EXPECT_EQ(settings_.plain.tls, SmtpTls::Required);
  EXPECT_TRUE(settings_.plain.verifyPeer);
  EXPECT_EQ(settings_.plain.caFile, "/etc/ca.pem");
  EXPECT_EQ(settings_.plain.user, "kavi");
  EXPECT_EQ(settings_.plain.password, "s3cret");
  EXPECT_EQ(settings_.timeouts.connectMs, 3000);
  EXPECT_EQ(settings_.timeouts.commandMs, 4000);
  EXPECT_EQ(settings_.timeouts.totalMs, 5000);
  EXPECT_EQ(settings_.handoffDeadlineMs, 6000);
  EXPECT_EQ(settings_.retry.firstPause, 7);
  EXPECT_EQ(settings_.retry.longestPause, 8);
  EXPECT_EQ(settings_.retry.giveUpAfter, 9);
  EXPECT_EQ(settings_.sealKeyPath(), "/var/keys");
}

TEST_F(DeliverySettingsTest, OpportunisticTlsDoesNotAskForAProperCertificate) {
  ASSERT_TRUE(read("[delivery]\nscan_tls = try\nplain_tls = try\nplain_verify = 1\n")) << error_;
  EXPECT_FALSE(settings_.scan.verifyPeer);
  EXPECT_TRUE(settings_.plain.verifyPeer);
}

struct Faulty {
  const char* name;
  const char* line;
  const char* words;
};

class FaultySettings : public DeliverySettingsTest, public ::testing::WithParamInterface<Faulty> {};

TEST_P(FaultySettings, AreNamedAndNotTaken) {
  ASSERT_TRUE(read("[delivery]\nscan_host = before\n"));
  EXPECT_FALSE(read(std::string("[delivery]\nscan_host = after\n") + GetParam().line));
  EXPECT_THAT(error_, HasSubstr("[delivery] "));
  EXPECT_THAT(error_, HasSubstr(GetParam().words));
  EXPECT_EQ(settings_.scan.host, "before");
}

INSTANTIATE_TEST_SUITE_P(
    All, FaultySettings,
    ::testing::Values(
        Faulty{"Host", "plain_host = two words\n", "plain_host: 'two words' is no host name"},
        Faulty{"HostInjection", "plain_host = a>b\n", "plain_host"},
        Faulty{"Name", "hello_name = <x>\n", "hello_name"},
        Faulty{"PortZero", "scan_port = 0\n", "'0' is not a number from 1 to 65535"},
        Faulty{"PortLarge", "scan_port = 65536\n", "scan_port"},
        Faulty{"PortWord", "scan_port = smtp\n", "scan_port"},
        Faulty{"Tls", "scan_tls = yes\n", "'yes' is none of off, try, starttls, implicit"},
        Faulty{"Verify", "scan_verify = 2\n", "scan_verify"},
        Faulty{"Password", "plain_password_file = /nonexistent\n", "cannot read '/nonexistent'"},
        Faulty{"OpenLogin", "plain_user = kavi\nplain_host = mx.example.org\n",
               "a login needs plain_tls"},
        Faulty{"StrippableLogin",
               "plain_user = kavi\nplain_host = mx.example.org\nplain_tls = try\n",
               "a login needs plain_tls"},
        Faulty{"Timeout", "connect_timeout_seconds = 0\n", "connect_timeout_seconds"},
        Faulty{"LongTimeout", "total_timeout_seconds = 2147484\n", "total_timeout_seconds"},
        Faulty{"Retry", "retry_first_seconds = -1\n", "retry_first_seconds"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(DeliverySettingsTest, LoginOnThisMachineNeedsNoTls) {
  EXPECT_TRUE(read("[delivery]\nplain_host = 127.0.0.1\nplain_user = kavi\n")) << error_;
}

TEST_F(DeliverySettingsTest, HandOffsHaveSectionsOfTheirOwn) {
  ASSERT_TRUE(
      read("[delivery]\nhandoff_tls = try\nhandoff_ca_file = /common.pem\n"
           "[delivery mx.example.org:2525]\ntls = implicit\nuser = kavi\n"
           "[delivery bad.example.org:25]\ntls = perhaps\n"))
      << error_;
  SmtpDestination to;
  ASSERT_TRUE(settings_.handoffTo("other.example.org", 25, to, error_)) << error_;
  EXPECT_EQ(to.text(), "other.example.org:25");
  EXPECT_EQ(to.tls, SmtpTls::Opportunistic);
  EXPECT_EQ(to.caFile, "/common.pem");
  EXPECT_EQ(to.user, "");
  ASSERT_TRUE(settings_.handoffTo("mx.example.org", 2525, to, error_)) << error_;
  EXPECT_EQ(to.tls, SmtpTls::Implicit);
  EXPECT_TRUE(to.verifyPeer);
  EXPECT_EQ(to.caFile, "/common.pem");
  EXPECT_EQ(to.user, "kavi");
  EXPECT_FALSE(settings_.handoffTo("bad.example.org", 25, to, error_));
  EXPECT_THAT(error_, HasSubstr("[delivery bad.example.org:25] tls: 'perhaps'"));
  EXPECT_EQ(to.host, "mx.example.org");
}

TEST_F(DeliverySettingsTest, HandOffsWorkWithoutAnySettings) {
  SmtpDestination to;
  EXPECT_TRUE(settings_.handoffTo("mx.example.org", 25, to, error_));
  EXPECT_EQ(to.tls, SmtpTls::Off);
}

}  // namespace
