// Who gets a notification, and what its "To" says of that.
#include "library/framework/message_handles.h"
#include "library/platform/ov_msg_session_info.h"
#include "tests/unit/library/notification/notify_test.h"

namespace {

using fakes::Handles;
using Kavi::ScanToken;

const char* const kNoSender =
    "Original message sender is empty and cannot be added into SMTP notification recipient.";
const char* const kBadSender = "Invalid message sender for SMTP Notification recipient.";
const char* const kHidden = "\"NotificationRecipients\"<NotificationRecipients>";

class NotificationRecipientsTest : public NotifyTest {
 protected:
  std::string to() { return mail().field("To"); }
};

TEST_F(NotificationRecipientsTest, AreThoseOfTheRecord) {
  record.recipients = "a@a.example;b@a.example";
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().recipients, (Recipients{"a@a.example", "b@a.example"}));
  EXPECT_EQ(to(), "a@a.example;b@a.example");
}

TEST_F(NotificationRecipientsTest, FailTheNotificationWhenTheyAreNone) {
  prepare([](fakes::Message& mail) { mail.facts().refusedRecipient = "admin@a.example"; });
  expectFailure(
      "Failed to set recipient address(es) into notification message, length 15 byte(s).");
}

TEST_F(NotificationRecipientsTest, FailTheNotificationWithoutAnEnvelope) {
  prepare([](fakes::Message& mail) { mail.facts().hasSession = false; });
  expectFailure("Invalid session information in notification message.");
}

TEST_F(NotificationRecipientsTest, FailTheNotificationWhenTheSenderIsNone) {
  prepare([](fakes::Message& mail) { mail.facts().senderAnswer = 5; });
  expectFailure(
      "Failed to set sender address into notification message, error 5 ('malformed text'), "
      "length 15 byte(s).");
}

TEST_F(NotificationRecipientsTest, MayBeSentByNobody) {
  record.sender.clear();
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().sender, "(none)") << "it is not even set";
  EXPECT_EQ(mail().field("From"), "");
}

TEST_F(NotificationRecipientsTest, TakeInTheScannedSender) {
  record.notifySender = true;
  tokens.set(ScanToken::Sender, "from@b.example");
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().recipients, (Recipients{"admin@a.example", "from@b.example"}));
  EXPECT_EQ(to(), "admin@a.example;from@b.example");
  EXPECT_FALSE(logged(3, kNoSender));
}

TEST_F(NotificationRecipientsTest, DoWithoutASenderThatIsEmpty) {
  record.notifySender = true;
  for (const char* sender : {"", " "}) {
    catcher.mails.clear();
    tokens.set(ScanToken::Sender, sender);
    EXPECT_TRUE(take());
    EXPECT_EQ(mail().recipients, Recipients{"admin@a.example"});
    EXPECT_EQ(to(), "admin@a.example");
    EXPECT_TRUE(logged(3, kNoSender));
  }
  tokens.erase(ScanToken::Sender);
  catcher.mails.clear();
  EXPECT_TRUE(take());
  EXPECT_EQ(to(), "admin@a.example");
  EXPECT_TRUE(logged(3, kNoSender));
}

TEST_F(NotificationRecipientsTest, NameASenderThatIsNoAddressInToOnly) {
  record.notifySender = true;
  tokens.set(ScanToken::Sender, "no address");
  prepare([](fakes::Message& mail) { mail.facts().refusedRecipient = "no address"; });
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().recipients, Recipients{"admin@a.example"});
  EXPECT_EQ(to(), "admin@a.example;no address");
  const auto lines = log.takeLines();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0], (fakes::LogLine{3, kBadSender}));
  EXPECT_EQ(lines[1], (fakes::LogLine{3, kNoSender}));
}

TEST_F(NotificationRecipientsTest, TakeNoListForASender) {
  record.notifySender = true;
  for (const char* list : {"a@b.example;victim@v.example", "a@b.example;", ";a@b.example",
                           "\"a\";victim@v.example;\"b\"@c.example"}) {
    SCOPED_TRACE(list);
    catcher.mails.clear();
    tokens.set(ScanToken::Sender, list);
    EXPECT_TRUE(take());
    EXPECT_EQ(mail().recipients, Recipients{"admin@a.example"});
    EXPECT_EQ(to(), std::string("admin@a.example;") + list);
    EXPECT_TRUE(logged(3, kBadSender));
  }
  for (const char* address : {"\"a;b\"@c.example", "\"a\\\";b\"@c.example"}) {
    SCOPED_TRACE(address);
    tokens.set(ScanToken::Sender, address);
    EXPECT_TRUE(take());
    EXPECT_FALSE(logged(3, kBadSender));
  }
}

TEST_F(NotificationRecipientsTest, TakeTheSenderFromTheHeaderWhereSet) {
  set("NotificationGetSenderFromMIME", "1");
  record.notifySender = true;
  tokens.set(ScanToken::Sender, "envelope@b.example");
  msg.root()->addField("From", "header@b.example");
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().recipients, (Recipients{"admin@a.example", "header@b.example"}));
  EXPECT_EQ(to(), "admin@a.example;header@b.example");
}

TEST_F(NotificationRecipientsTest, AddTheHeaderThatTheyLookFor) {
  set("NotificationGetSenderFromMIME", "1");
  record.notifySender = true;
  EXPECT_TRUE(take());
  EXPECT_EQ(msg.fields(), Texts{"From:"});
  EXPECT_TRUE(logged(3, kNoSender));
  EXPECT_EQ(to(), "admin@a.example");
}

TEST_F(NotificationRecipientsTest, DoWithoutAHeaderThatCannotBeAdded) {
  set("NotificationGetSenderFromMIME", "1");
  record.notifySender = true;
  msg.root()->facts().addsHeaders = false;
  EXPECT_TRUE(take());
  const auto lines = log.takeLines();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0], (fakes::LogLine{2, "Failed to set header 'From'."}));
  EXPECT_EQ(lines[1], (fakes::LogLine{3, kNoSender}));
}

TEST_F(NotificationRecipientsTest, DoWithoutTheSenderOfAMessageWithoutARoot) {
  set("NotificationGetSenderFromMIME", "1");
  record.notifySender = true;
  fakes::Message rootless(false);
  EXPECT_TRUE(action.takeAction(&rootless, &original, flag, tokens, catcher, namedObjects));
  EXPECT_TRUE(action.takeAction(nullptr, nullptr, flag, tokens, catcher, namedObjects));
  ASSERT_EQ(catcher.mails.size(), 2u);
  EXPECT_EQ(catcher.mails[0].field("To"), "admin@a.example");
  EXPECT_EQ(catcher.mails[1].field("To"), "admin@a.example");
}

TEST_F(NotificationRecipientsTest, TakeInTheScannedRecipientsAndHideThem) {
  record.notifyRecipients = true;
  tokens.set(ScanToken::Recipients, "one@b.example;two@b.example");
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().recipients, (Recipients{"admin@a.example", "one@b.example", "two@b.example"}));
  EXPECT_EQ(to(), std::string("admin@a.example;") + kHidden);
  EXPECT_EQ(msg.facts().recipients.size(), 2u) << "theirs stay";
}

TEST_F(NotificationRecipientsTest, ShowTheScannedRecipientsWhereSet) {
  set("NotificationHideRecipients", "0");
  record.notifyRecipients = true;
  tokens.set(ScanToken::Recipients, "one@b.example;two@b.example");
  EXPECT_TRUE(take());
  EXPECT_EQ(to(), "admin@a.example;one@b.example;two@b.example");
}

TEST_F(NotificationRecipientsTest, ShowASeparatorForRecipientsThatAreUnknown) {
  set("NotificationHideRecipients", "0");
  record.notifyRecipients = true;
  EXPECT_TRUE(take());
  EXPECT_EQ(to(), "admin@a.example;");
  EXPECT_EQ(mail().recipients.size(), 3u);
}

TEST_F(NotificationRecipientsTest, FailTheNotificationWithoutTheScannedEnvelope) {
  record.notifyRecipients = true;
  msg.facts().hasSession = false;
  EXPECT_FALSE(take());
  EXPECT_TRUE(logged(3, "Invalid session information in original message."));
  EXPECT_FALSE(action.takeAction(nullptr, &original, flag, tokens, catcher, namedObjects));
  const auto lines = log.takeLines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], (fakes::LogLine{3, "Invalid session information in original message."}));
  EXPECT_EQ(lines[1].level, 1);
  EXPECT_TRUE(catcher.mails.empty());
}

TEST_F(NotificationRecipientsTest, InsertTheOneRecipient) {
  record.notifyRecipients = true;
  msg.facts().recipients = {"one@b.example"};
  tokens.set(ScanToken::Recipients, "other@b.example");
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().recipients, (Recipients{"admin@a.example", "one@b.example"}));
}

TEST_F(NotificationRecipientsTest, ReplaceALabelByWhatScanningKnows) {
  record.notifyRecipients = true;
  tokens.set(ScanToken::Recipients, "real@b.example");
  for (const char* label :
       {"POP3_Mail_Recipient", "pop3_mail_recipient@pop.example", "POP3_Mail_Recipient2@x"}) {
    SCOPED_TRACE(label);
    catcher.mails.clear();
    msg.facts().recipients = {label};
    EXPECT_TRUE(take());
    EXPECT_EQ(mail().recipients, (Recipients{"admin@a.example", "real@b.example"}));
  }
}

TEST_F(NotificationRecipientsTest, KeepALabelThatNothingIsKnownFor) {
  record.notifyRecipients = true;
  msg.facts().recipients = {"POP3_Mail_Recipient"};
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().recipients, (Recipients{"admin@a.example", "POP3_Mail_Recipient"}));
  tokens.set(ScanToken::Recipients, "");
  EXPECT_TRUE(take());
  EXPECT_EQ(catcher.mails[1].recipients, catcher.mails[0].recipients) << "empty counts as none";
}

TEST_F(NotificationRecipientsTest, LeaveLabelsAmongSeveralAsTheyAre) {
  record.notifyRecipients = true;
  tokens.set(ScanToken::Recipients, "real@b.example");
  msg.facts().recipients = {"POP3_Mail_Recipient", "one@b.example"};
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().recipients,
            (Recipients{"admin@a.example", "POP3_Mail_Recipient", "one@b.example"}));
}

TEST_F(NotificationRecipientsTest, PassOverBlankEntriesWithoutAPlace) {
  record.notifyRecipients = true;
  msg.facts().recipients = {"", "one@b.example", "  ", "two@b.example"};
  class Looking : public MailCatcher {
   public:
    int deliverMessage(unsigned int& error, OvMsgMailMessage* mail) override {
      calls = static_cast<fakes::Message*>(mail)->facts().calls;
      return MailCatcher::deliverMessage(error, mail);
    }
    std::vector<std::string> calls;
  } looking;
  EXPECT_TRUE(action.takeAction(&msg, &original, flag, tokens, looking, namedObjects));
  EXPECT_EQ(looking.calls,
            (Texts{"setRcpt admin@a.example replace", "insertRecipient 1 one@b.example",
                   "insertRecipient 2 two@b.example", "getRcpt"}));
  EXPECT_EQ(looking.mails[0].recipients,
            (Recipients{"admin@a.example", "one@b.example", "two@b.example"}));
}

TEST_F(NotificationRecipientsTest, StayAsTheyAreForAMessageWithoutAny) {
  record.notifyRecipients = true;
  msg.facts().recipients.clear();
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().recipients, Recipients{"admin@a.example"});
}

TEST_F(NotificationRecipientsTest, FailTheNotificationWhenTheyCannotBeReadBack) {
  prepare([](fakes::Message& mail) { mail.facts().listsRecipients = false; });
  expectFailure("Failed to get recipient address(es) from notification message.");
}

TEST_F(NotificationRecipientsTest, DropAMailForBlankEntriesOnly) {
  record.sendTrap = true;
  record.trapMessage = "trap";
  set("SNMPServer", "snmp.example");
  for (const char* blanks : {" ", "   ", "  ; ", "; ;"}) {
    SCOPED_TRACE(blanks);
    record.recipients = blanks;
    fakes::Traps::instance().clear();
    EXPECT_TRUE(take());
    EXPECT_TRUE(catcher.mails.empty());
    EXPECT_EQ(log.takeLines(1), (Texts{"No valid recipient in notification message.",
                                       "send SNMP Trap, ret:0, trap:to snmp.example."}));
    EXPECT_EQ(fakes::Traps::instance().sent.size(), 1u);
  }
}

TEST_F(NotificationRecipientsTest, DropAMailForBlankEntriesThatAreListed) {
  record.recipients.clear();
  record.notifyRecipients = true;
  msg.facts().recipients = {"  "};
  EXPECT_TRUE(take());
  EXPECT_TRUE(catcher.mails.empty());
  EXPECT_EQ(log.takeLines(1), Texts{"No valid recipient in notification message."});
}

TEST_F(NotificationRecipientsTest, OfTheScannedMailMakeUpForBlankOnes) {
  record.recipients = "  ";
  record.notifyRecipients = true;
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().recipients, (Recipients{"one@b.example", "two@b.example"}));
}

TEST_F(NotificationRecipientsTest, SkipAMailForNobody) {
  for (const char* none : {"", ";", ";;"}) {
    record.recipients = none;
    EXPECT_TRUE(take());
    EXPECT_TRUE(logged(2, "Skip SMTP notification due to zero recipient.")) << none;
  }
  EXPECT_TRUE(catcher.mails.empty());
}

TEST_F(NotificationRecipientsTest, GoOnWithSomeBlankEntries) {
  record.recipients = " ;admin@a.example; ";
  EXPECT_TRUE(take());
  EXPECT_EQ(catcher.mails.size(), 1u);
}

class SenderHeaderTest : public NotifyTest {
 protected:
  bool write(bool noSender = false) {
    const library::Session session(composed.sessionInfo());
    return ActNotify::_add_sender_into_header(composed.root(), session.get(), "utf-8", noSender);
  }
  std::string from() {
    const fakes::Header* field = composed.root()->findField("From");
    return field != nullptr ? field->valueText() : "(none)";
  }
  fakes::Message composed;
};

TEST_F(SenderHeaderTest, NamesTheAddressTwiceWithoutADisplayName) {
  composed.facts().sender = "a@b.example";
  EXPECT_TRUE(write());
  EXPECT_EQ(from(), "\"a@b.example\" <a@b.example>");
}

TEST_F(SenderHeaderTest, EncodesTheDisplayName) {
  composed.facts().sender = "a@b.example";
  composed.facts().senderName = "Gate";
  EXPECT_TRUE(write());
  EXPECT_EQ(from(), "\"=?utf-8?Gate?=\" <a@b.example>");
}

TEST_F(SenderHeaderTest, NamesTheAddressWhenTheNameCannotBeEncoded) {
  composed.facts().sender = "a@b.example";
  composed.facts().senderName = "Gate";
  Handles::instance().refusesTexts = true;
  EXPECT_TRUE(write());
  EXPECT_EQ(from(), "\"a@b.example\" <a@b.example>");
}

TEST_F(SenderHeaderTest, IsEmptyForNoSender) {
  composed.root()->addField("From", "old");
  EXPECT_TRUE(write(true));
  EXPECT_EQ(from(), "");
}

TEST_F(SenderHeaderTest, FailsWithoutWhatItNeeds) {
  EXPECT_FALSE(write()) << "no sender";
  composed.facts().sender = "a@b.example";
  composed.facts().hidesSenderAddress = true;
  EXPECT_FALSE(write()) << "no address";
  composed.facts().hidesSenderAddress = false;
  composed.root()->removeHeader("From");
  composed.root()->facts().addsHeaders = false;
  EXPECT_FALSE(write()) << "no field";
  EXPECT_TRUE(logged(2, "Failed to set header 'From'."));
}

TEST_F(SenderHeaderTest, AnswersWhetherTheFieldWasWritten) {
  composed.facts().sender = "a@b.example";
  composed.root()->addField("From", "old")->facts().refusals = 1;
  EXPECT_FALSE(write());
  EXPECT_EQ(from(), "old");
}

TEST_F(SenderHeaderTest, IsNoReasonToStop) {
  prepare([](fakes::Message& mail) { mail.facts().hidesSenderAddress = true; });
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().field("From"), "");
}

}  // namespace
