// Which notifications an action runs, and when it stops.
#include "tests/unit/library/notification/notify_test.h"

#include "library/namedobj/stamp_area.h"

namespace {

using fakes::LogLines;
using Kavi::ScanToken;

const char* const kReturned = "Skip SMTP notification due to it's a notification mail already.";

TEST_F(NotifyTest, AnswersAsTabled) {
  EXPECT_EQ(action.getType(), 10);
  EXPECT_TRUE(action.requiresOriginalMsg());
  EXPECT_TRUE(action.hasNamedObjects());
  EXPECT_EQ(action.serialize(), "1-7");
}

TEST_F(NotifyTest, SendsOneMail) {
  EXPECT_TRUE(take());
  EXPECT_FALSE(flag) << "the scanned message stays in the stream";
  EXPECT_EQ(mail().how, "deliver");
  EXPECT_EQ(mail().recipients, Recipients{"admin@a.example"});
  EXPECT_EQ(mail().sender, "kavi@gw.example");
  EXPECT_EQ(mail().content, Texts{"text 'a rule matched' text/plain (null) base64"});
  EXPECT_EQ(catcher.errorOnEntry(), 0u);
  EXPECT_TRUE(msg.fields().empty()) << "the scanned message is left alone";
}

TEST_F(NotifyTest, ClearsTheFlagEvenWhenItFails) {
  ActNotify bare;
  EXPECT_FALSE(bare.takeAction(&msg, &original, flag, tokens, catcher, namedObjects));
  EXPECT_FALSE(flag);
  EXPECT_TRUE(log.takeLines().empty());
  EXPECT_TRUE(catcher.mails.empty());
}

TEST_F(NotifyTest, RunsEveryIdInOrder) {
  uiNotifyArea other = record;
  other.subject = "the other";
  namedObjects.set(9, &other);
  ActNotify both;
  EXPECT_TRUE(both.construct("3-9-7-9", 7));
  EXPECT_TRUE(both.takeAction(&msg, &original, flag, tokens, catcher, namedObjects));
  ASSERT_EQ(catcher.mails.size(), 3u);
  EXPECT_EQ(catcher.mails[0].field("Subject"), "the other");
  EXPECT_EQ(catcher.mails[1].field("Subject"), "rule matched");
  EXPECT_EQ(catcher.mails[2].field("Subject"), "the other");
}

TEST_F(NotifyTest, StopsAtTheFirstThatFails) {
  uiNotifyArea broken = record;
  broken.name = "broken";
  prepare([](fakes::Message& mail) { mail.facts().refusedRecipient = "nobody"; });
  broken.recipients = "nobody";
  namedObjects.set(9, &broken);
  ActNotify three;
  EXPECT_TRUE(three.construct("3-7-9-7", 7));
  EXPECT_FALSE(three.takeAction(&msg, &original, flag, tokens, catcher, namedObjects));
  EXPECT_EQ(catcher.mails.size(), 1u) << "what was sent stays sent";
  EXPECT_EQ(
      log.takeLines(1),
      (Texts{"Failed to set recipient address(es) into notification message, length 6 byte(s).",
             "Failed to send out notification, named 'broken' (id=9)."}));
}

TEST_F(NotifyTest, RefusesAnIdWithoutARecord) {
  namedObjects.set(7, nullptr);
  EXPECT_FALSE(take());
  NamedObjMgrForScanner none;
  EXPECT_FALSE(action.takeAction(&msg, &original, flag, tokens, catcher, none));
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "Invalid name object type reference. id=7"},
                                       {1, "Invalid name object type reference. id=7"}}));
  EXPECT_TRUE(catcher.mails.empty());
}

TEST_F(NotifyTest, RefusesARecordOfAnotherType) {
  uiStampArea stamp;
  namedObjects.set(7, &stamp);
  EXPECT_FALSE(take());
  EXPECT_EQ(log.takeLines(), (LogLines{{1, "Incorrect name object type reference. type=2"}}));
  EXPECT_TRUE(catcher.mails.empty());
}

TEST_F(NotifyTest, SendsNothingForANotificationThatCameBack) {
  tokens.set(ScanToken::Rescanned, "yes");
  msg.root()->addField("X-kavi-reprocess-type", "notification");
  record.sendTrap = true;
  record.trapMessage = "trap";
  set("SNMPServer", "127.0.0.1");
  EXPECT_TRUE(take());
  EXPECT_FALSE(flag);
  EXPECT_EQ(log.takeLines(), (LogLines{{2, kReturned}}));
  EXPECT_TRUE(catcher.mails.empty());
  EXPECT_TRUE(fakes::Traps::instance().sent.empty());
}

TEST_F(NotifyTest, GuardsAgainstLoopsBeforeItLooksAtTheRecords) {
  tokens.set(ScanToken::Rescanned, "yes");
  msg.root()->addField("X-kavi-reprocess-type", "notification");
  namedObjects.set(7, nullptr);
  EXPECT_TRUE(take());
}

struct GuardCase {
  const char* what;
  const char* rescanned;  // null: no such token
  const char* type;       // null: no such field
};

TEST_F(NotifyTest, SendsForEveryOtherMessage) {
  const GuardCase cases[] = {
      {"not rescanned", nullptr, "notification"},
      {"not quite yes", "YES", "notification"},
      {"said no", "no", "notification"},
      {"another action's", "yes", "readdress"},
      {"another case", "yes", "Notification"},
      {"more than the word", "yes", "notification2"},
      {"no type", "yes", nullptr},
  };
  for (const GuardCase& test : cases) {
    SCOPED_TRACE(test.what);
    tokens.erase(ScanToken::Rescanned);
    if (test.rescanned != nullptr) {
      tokens.set(ScanToken::Rescanned, test.rescanned);
    }
    fakes::Message scanned;
    if (test.type != nullptr) {
      scanned.root()->addField("X-kavi-reprocess-type", test.type);
    }
    catcher.mails.clear();
    EXPECT_TRUE(action.takeAction(&scanned, &original, flag, tokens, catcher, namedObjects));
    EXPECT_EQ(catcher.mails.size(), 1u);
  }
}

TEST_F(NotifyTest, TakesARescannedMessageWithoutARootForNoNotification) {
  tokens.set(ScanToken::Rescanned, "yes");
  fakes::Message rootless(false);
  EXPECT_TRUE(action.takeAction(&rootless, &original, flag, tokens, catcher, namedObjects));
  EXPECT_EQ(catcher.mails.size(), 1u);
  EXPECT_TRUE(action.takeAction(nullptr, nullptr, flag, tokens, catcher, namedObjects));
  EXPECT_EQ(catcher.mails.size(), 2u);
}

TEST_F(NotifyTest, FailsWithoutARecord) {
  EXPECT_FALSE(ActNotify::_runNameObj(&msg, &original, flag, tokens, catcher, nullptr));
  EXPECT_TRUE(catcher.mails.empty());
}

}  // namespace
