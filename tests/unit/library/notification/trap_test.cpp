// The SNMP trap that closes a notification.
#include "tests/unit/library/notification/notify_test.h"

namespace {

using fakes::LogLines;
using fakes::Traps;
using Kavi::ScanToken;

const char* const kSent = "send SNMP Trap, ret:0, trap:to snmp.example.";

class TrapTest : public NotifyTest {
 protected:
  TrapTest() {
    set("SNMPServer", "snmp.example");
    record.sendTrap = true;
    record.trapMessage = "rule %RULENAME% matched";
    record.type = 27;
    tokens.set(ScanToken::RuleName, "executables");
  }
  const Texts& sent() { return Traps::instance().sent; }
};

TEST_F(TrapTest, CarriesTheRecordsTextAndType) {
  set("Community", "secret");
  EXPECT_TRUE(take());
  EXPECT_EQ(sent(), Texts{"snmp.example 0 1.3.6.1.4.1.99999.141 'secret' 27 "
                          "'rule executables matched'"});
  EXPECT_EQ(log.takeLines(1), Texts{kSent}) << "said on success, too";
  EXPECT_EQ(catcher.mails.size(), 1u);
}

TEST_F(TrapTest, LeavesTheDefaultCommunityToTheSender) {
  EXPECT_TRUE(take());
  EXPECT_EQ(sent(), Texts{"snmp.example 0 1.3.6.1.4.1.99999.141 '' 27 'rule executables matched'"});
  EXPECT_EQ(log.takeLines(1), Texts{kSent});
}

TEST_F(TrapTest, IsOfTheSecondVersionForTheExactWordOnly) {
  for (const char* version : {"snmpv2c", "SNMPV2C", "snmpv2", "snmpv1", "snmpv3", "snmpv2c ", ""}) {
    SCOPED_TRACE(version);
    Traps::instance().clear();
    set("SNMPVersion", version);
    EXPECT_TRUE(take());
    ASSERT_EQ(sent().size(), 1u);
    const std::string number = version == std::string("snmpv2c") ? "1" : "0";
    EXPECT_TRUE(sent()[0].starts_with("snmp.example " + number + " ")) << sent()[0];
    log.takeLines();
  }
}

TEST_F(TrapTest, IsNotSentUnlessTheRecordAsksForIt) {
  record.sendTrap = false;
  EXPECT_TRUE(take());
  record.sendTrap = true;
  record.trapMessage.clear();
  EXPECT_TRUE(take());
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(catcher.mails.size(), 2u);
}

TEST_F(TrapTest, IsSentThoughItsTextTurnsOutEmpty) {
  record.trapMessage = "%RULENAME%";
  tokens.set(ScanToken::RuleName, "");
  EXPECT_TRUE(take());
  EXPECT_EQ(sent(), Texts{"snmp.example 0 1.3.6.1.4.1.99999.141 '' 27 ''"});
  EXPECT_EQ(log.takeLines(1), Texts{kSent});
}

TEST_F(TrapTest, IsIgnoredWithoutAServer) {
  set("SNMPServer", "");
  EXPECT_TRUE(take());
  EXPECT_TRUE(logged(2, "Ignore SNMP Trap due to missing server address."));
  fakes::Settings none;
  ActNotify::init(none, log);
  EXPECT_TRUE(take());
  EXPECT_TRUE(logged(2, "Ignore SNMP Trap due to missing server address."));
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(catcher.mails.size(), 2u);
}

TEST_F(TrapTest, FailsTheNotificationWhenItCannotBeSent) {
  Traps::instance().answer = 5;
  EXPECT_FALSE(take());
  EXPECT_EQ(catcher.mails.size(), 1u) << "the mail went before";
  EXPECT_EQ(
      log.takeLines(1),
      (Texts{"send SNMP Trap, ret:5, trap:to snmp.example.", "Failed to send SNMP Trap, error: 5.",
             "Failed to send out notification, named 'tell the postmaster' (id=7)."}));
}

TEST_F(TrapTest, MayFailWhereTheSettingsSaySo) {
  set("IgnoreSnmpError", "1", "MessageModule");
  Traps::instance().answer = -3;
  EXPECT_TRUE(take());
  const auto lines = log.takeLines();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2],
            (fakes::LogLine{1, "send SNMP Trap, ret:-3, trap:to snmp.example."}));
  EXPECT_EQ(lines.back(), (fakes::LogLine{2, "Ignore SNMP Trap sending error. (4294967293)"}));
}

TEST_F(TrapTest, IsSentThoughNobodyGetsTheMail) {
  record.recipients.clear();
  EXPECT_TRUE(take());
  EXPECT_TRUE(catcher.mails.empty());
  EXPECT_EQ(sent().size(), 1u);
  const auto lines = log.takeLines();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[lines.size() - 2],
            (fakes::LogLine{2, "Skip SMTP notification due to zero recipient."}));
  EXPECT_EQ(lines.back(), (fakes::LogLine{1, kSent}));
}

TEST_F(TrapTest, IsSentWhenTheMailIsGone) {
  for (const char* recipients : {"admin@a.example", "", " ; "}) {
    SCOPED_TRACE(recipients);
    Traps::instance().clear();
    record.recipients = recipients;
    EXPECT_TRUE(take());
    EXPECT_EQ(sent().size(), 1u);
    EXPECT_EQ(Traps::instance().messagesAtSending, 0);
    log.takeLines();
  }
}

TEST_F(TrapTest, IsNotSentWhenTheMailFailed) {
  catcher.answer(17, -1);
  EXPECT_FALSE(take());
  EXPECT_EQ(log.takeLines(1),
            (Texts{"Failed to send notification through SMTP Adapter, error 17.",
                   "Failed to send out notification, named 'tell the postmaster' (id=7)."}));
  EXPECT_TRUE(sent().empty());
}

}  // namespace
