// The settings of notifications, and the words for mail fetched by POP3.
#include "library/notification/notify_settings.h"

#include "tests/unit/library/notification/notify_test.h"

namespace {

using fakes::LogLines;
using namespace library;

class NotifySettingsTest : public NotifyTest {};

const Texts kLookups{"getInt MessageModule/IgnoreSnmpError",
                     "getString General-Notification/SNMPServer",
                     "getString General-Notification/Community",
                     "getString General-Notification/SNMPVersion",
                     "getString General-Notification/MailFrom",
                     "getInt General-Notification/NotificationSkipScan",
                     "getInt General-Notification/NotificationHideRecipients",
                     "getInt General-Notification/NotificationGetSenderFromMIME",
                     "getInt kavi_manager/scanner_id",
                     "getInt General-Notification/AddMsgIdInPolicyNotify"};

void expectDefaults() {
  EXPECT_FALSE(g_ignore_snmp_error);
  EXPECT_EQ(g_snmp_server_ip, "");
  EXPECT_EQ(g_snmp_community_str, "");
  EXPECT_EQ(g_snmp_version, "");
  EXPECT_EQ(g_mail_from, "");
  EXPECT_FALSE(g_skip_scan);
  EXPECT_TRUE(g_hide_recipients);
  EXPECT_FALSE(g_get_sender_from_MIME);
  EXPECT_EQ(g_scanner_id, 0u);
  EXPECT_FALSE(g_add_msg_id);
}

void setAll(fakes::Settings& settings) {
  const std::pair<const char*, const char*> values[] = {{"SNMPServer", "snmp.example"},
                                                        {"Community", "secret"},
                                                        {"SNMPVersion", "snmpv2c"},
                                                        {"MailFrom", "kavi@gw.example"},
                                                        {"NotificationSkipScan", "2"},
                                                        {"NotificationHideRecipients", "0"},
                                                        {"NotificationGetSenderFromMIME", "1"},
                                                        {"AddMsgIdInPolicyNotify", "-1"}};
  for (const auto& [key, value] : values) {
    settings.set("General-Notification", key, value);
  }
  settings.set("MessageModule", "IgnoreSnmpError", "1");
  settings.set("kavi_manager", "scanner_id", "4711");
}

TEST_F(NotifySettingsTest, KeepTheirDefaultsWhenNothingIsSet) {
  fakes::Settings none;
  EXPECT_TRUE(ActNotify::init(none, log));
  EXPECT_EQ(none.lookups(), kLookups);
  EXPECT_EQ(log.takeLines(),
            (LogLines{{2,
                       "No SNMP server address configured. SNMP Trap for notification will be "
                       "ignored."},
                      {2, "Missing community string, default is 'public'."},
                      {2, "Missing snmp version string, default is 'snmpv1'."},
                      {2, "SMTP Notification Mail From is empty."}}));
  expectDefaults();
}

TEST_F(NotifySettingsTest, AreReadInTheirOrder) {
  fakes::Settings all;
  setAll(all);
  EXPECT_TRUE(ActNotify::init(all, log));
  EXPECT_EQ(all.lookups(), kLookups);
  EXPECT_EQ(log.takeLines(), (LogLines{{3, "SNMP server address: snmp.example"},
                                       {3, "SNMP Community string: secret"},
                                       {3, "SNMP snmp version string: snmpv2c"},
                                       {3, "SMTP Notification Mail From:"}}));
  EXPECT_TRUE(g_ignore_snmp_error);
  EXPECT_EQ(g_snmp_server_ip, "snmp.example");
  EXPECT_EQ(g_snmp_community_str, "secret");
  EXPECT_EQ(g_snmp_version, "snmpv2c");
  EXPECT_EQ(g_mail_from, "kavi@gw.example");
  EXPECT_TRUE(g_skip_scan);
  EXPECT_FALSE(g_hide_recipients);
  EXPECT_TRUE(g_get_sender_from_MIME);
  EXPECT_EQ(g_scanner_id, 4711u);
  EXPECT_TRUE(g_add_msg_id);
}

TEST_F(NotifySettingsTest, GoBackToTheirDefaultsAtAStartWithout) {
  fakes::Settings all;
  setAll(all);
  ActNotify::init(all, log);
  fakes::Settings none;
  ActNotify::init(none, log);
  expectDefaults();
}

TEST_F(NotifySettingsTest, TakeAnyScannerIdAsItStands) {
  for (const auto& [text, id] :
       {std::pair("0", 0u), std::pair("2147483647", 2147483647u), std::pair("-1", 4294967295u)}) {
    set("scanner_id", text, "kavi_manager");
    EXPECT_EQ(g_scanner_id, id);
  }
}

TEST_F(NotifySettingsTest, SayNothingOfFlags) {
  fakes::Settings flags;
  flags.set("MessageModule", "IgnoreSnmpError", "0");
  flags.set("General-Notification", "NotificationSkipScan", "0");
  flags.set("General-Notification", "NotificationHideRecipients", "7");
  ActNotify::init(flags, log);
  EXPECT_EQ(log.takeLines().size(), 4u) << "those of the four texts";
  EXPECT_FALSE(g_skip_scan);
  EXPECT_TRUE(g_hide_recipients);
}

TEST(Pop3EmailTest, IsAnAddressThatHoldsOneOfTheWords) {
  for (const char* address :
       {"POP3FromLabel@*", "x POP3ToLabel@* y", "POP3_Mail_Sender@host", "aPOP3_Mail_Recipientb"}) {
    EXPECT_TRUE(_is_pop3_email(address)) << address;
  }
  for (const char* address : {"", "pop3_mail_sender", "POP3FromLabel@host", "POP3_Mail", "a@b"}) {
    EXPECT_FALSE(_is_pop3_email(address)) << address;
  }
  EXPECT_FALSE(_is_pop3_email(nullptr));
}

}  // namespace
