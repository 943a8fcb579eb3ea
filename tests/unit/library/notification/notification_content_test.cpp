// The text of a notification, the message that it carries, and how it is handed over.
#include "library/notification/notification_mail.h"
#include "tests/unit/library/notification/notify_test.h"

namespace {

using fakes::Handles;
using Kavi::ScanToken;

class NotificationContentTest : public NotifyTest {
 protected:
  std::string text() { return mail().content.empty() ? "(none)" : mail().content.front(); }
};

TEST_F(NotificationContentTest, FailsWithoutAMessage) {
  Handles::instance().refusesMessages = true;
  expectFailure("Failed to create Message object instance.");
}

TEST_F(NotificationContentTest, LeavesAMessageWithoutARootBehind) {
  Handles::instance().makesRootlessMessages = true;
  EXPECT_FALSE(take());
  EXPECT_EQ(log.takeLines(1),
            (Texts{"Cannot retrieve root Entity from the composing notification message.",
                   "Failed to send out notification, named 'tell the postmaster' (id=7)."}));
  EXPECT_EQ(Handles::instance().messages, 1);
  OvMsg_DeleteMailMessage(Handles::instance().last);
}

TEST_F(NotificationContentTest, ReplacesTokens) {
  tokens.set(ScanToken::RuleName, "executables");
  tokens.set(ScanToken::Subject, "buy now");
  record.subject = "[%RULENAME%] %SUBJECT%";
  record.body = "%RULENAME% matched, 100% sure, %UNKNOWN%";
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().field("Subject"), "[executables] buy now");
  EXPECT_EQ(text(), "text 'executables matched, 100% sure, %UNKNOWN%' text/plain (null) base64");
}

TEST_F(NotificationContentTest, KeepsASubjectThatBecomesEmpty) {
  tokens.set(ScanToken::RuleName, "");
  record.subject = "%RULENAME%";
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().field("Subject"), "%RULENAME%");
}

TEST_F(NotificationContentTest, KeepsTemplatesWithoutAScannedMessage) {
  record.subject = "%RULENAME%";
  record.body = "%SENDER%";
  EXPECT_TRUE(action.takeAction(nullptr, nullptr, flag, tokens, catcher, namedObjects));
  EXPECT_EQ(mail().field("Subject"), "%RULENAME%");
  EXPECT_EQ(text(), "text '%SENDER%' text/plain (null) base64");
}

TEST_F(NotificationContentTest, WritesASpaceForAnEmptyBody) {
  record.body.clear();
  EXPECT_TRUE(take());
  EXPECT_EQ(text(), "text ' ' text/plain (null) base64");
}

TEST_F(NotificationContentTest, SwitchesToUtf8WhenTheCharsetCannotCarryTheBody) {
  record.subject = "caf\xC3\xA9";
  record.body = "caf\xC3\xA9";
  EXPECT_TRUE(take());
  EXPECT_EQ(log.takeLines(1),
            Texts{"Cannot convert from charset 'utf-8' to 'us-ascii', error 5 ('malformed text') "
                  "with string: caf\xC3\xA9."});
  EXPECT_EQ(text(), "text 'caf\xC3\xA9' text/plain utf-8 base64");
  EXPECT_EQ(mail().parameters, Texts{"charset=utf-8"});
  EXPECT_EQ(mail().subject.back(), "caf\xC3\xA9 [utf-8]");
}

TEST_F(NotificationContentTest, SwitchesToUtf8ForAnEightBitBodyThatPassesForAscii) {
  fakes::Conversions::instance().keepsEightBit = true;
  record.body = "caf\xC3\xA9";
  EXPECT_TRUE(take());
  EXPECT_TRUE(log.takeLines(1).empty());
  EXPECT_EQ(text(), "text 'caf\xC3\xA9' text/plain utf-8 base64");
  EXPECT_EQ(mail().parameters, Texts{"charset=utf-8"});
  EXPECT_EQ(mail().subject.back(), "rule matched [utf-8]");
}

TEST_F(NotificationContentTest, TellsOfTheFirst32BytesOfABody) {
  record.body = std::string(31, 'a') + "\xC3\xA9 and more";
  EXPECT_TRUE(take());
  EXPECT_EQ(log.takeLines(1),
            Texts{"Cannot convert from charset 'utf-8' to 'us-ascii', error 5 ('malformed text') "
                  "with string: " +
                  std::string(31, 'a') + "\xC3."});
}

TEST_F(NotificationContentTest, ConvertsTheBody) {
  const struct {
    const char* charset;
    const char* bytes;
    const char* named;
  } cases[] = {
      {"utf-8", "\xE6\x97\xA5", "utf-8"},  {"iso-2022-jp", "\x1B$BF|\x1B(B", "iso-2022-jp"},
      {"shift_jis", "\x93\xFA", "(null)"}, {"ISO-2022-JP", "\x1B$BF|\x1B(B", "(null)"},
      {"UTF-8", "\xE6\x97\xA5", "(null)"},
  };
  record.body = "\xE6\x97\xA5";
  for (const auto& test : cases) {
    SCOPED_TRACE(test.charset);
    catcher.mails.clear();
    set("PreferredCharset", test.charset);
    EXPECT_TRUE(take());
    EXPECT_EQ(text(),
              std::string("text '") + test.bytes + "' text/plain " + test.named + " base64");
    EXPECT_EQ(mail().parameters, Texts{std::string("charset=") + test.charset});
  }
}

TEST_F(NotificationContentTest, FailsWithoutAResource) {
  fakes::ResourceLocators::instance().refuse();
  expectFailure("Failed to create Resource Locator object before disclaimer insertion.");
}

TEST_F(NotificationContentTest, FailsWhenTheTextCannotBeInserted) {
  prepare([](fakes::Message& mail) { mail.root()->facts().textAnswer = 5; });
  expectFailure(
      "Failed to insert disclaimer message when composing notification message, error 5 "
      "('malformed text').");
}

TEST_F(NotificationContentTest, CarriesTheMessageAsReceived) {
  record.attachMessage = true;
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().attached, &original);
  EXPECT_EQ(mail().content, (Texts{"text 'a rule matched' text/plain (null) base64", "attach -1"}));
  EXPECT_EQ(mail().field("Content-Type"), "multipart/mixed");
  EXPECT_EQ(mail().field("Content-Transfer-Encoding"), "(none)");
}

TEST_F(NotificationContentTest, CarriesTheMessageAsItStands) {
  record.attachMessage = true;
  record.attachModifiedMessage = true;
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().attached, &msg);
}

TEST_F(NotificationContentTest, CarriesNothingUnlessAsked) {
  record.attachModifiedMessage = true;
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().content.size(), 1u);
}

TEST_F(NotificationContentTest, FailsWhenTheMessageCannotBeAttached) {
  record.attachMessage = true;
  prepare([](fakes::Message& mail) { mail.root()->facts().attachAnswer = 2; });
  expectFailure(
      "Failed to insert scanning message into notification message, error 2 ('other error').");
}

TEST_F(NotificationContentTest, FailsWithoutTheMessageToAttach) {
  record.attachMessage = true;
  const std::string reason =
      "Failed to insert scanning message into notification message, error 1 ('other error').";
  EXPECT_FALSE(action.takeAction(&msg, nullptr, flag, tokens, catcher, namedObjects));
  EXPECT_EQ(log.takeLines(1).front(), reason);
  record.attachModifiedMessage = true;
  EXPECT_FALSE(action.takeAction(nullptr, &original, flag, tokens, catcher, namedObjects));
  EXPECT_EQ(log.takeLines(1).front(), reason);
  EXPECT_TRUE(catcher.mails.empty());
}

TEST_F(NotificationContentTest, SendsACarriedMessageBackThroughScanning) {
  record.attachMessage = true;
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().how, "resend 1");
  EXPECT_EQ(mail().field("X-kavi-reprocess-rules"), "15");
  EXPECT_EQ(mail().field("X-kavi-reprocess-type"), "notification");
  EXPECT_TRUE(msg.fields().empty()) << "the scanned message is not marked";
}

TEST_F(NotificationContentTest, DeliversACarriedMessageWhereScanningIsSkipped) {
  set("NotificationSkipScan", "1");
  record.attachMessage = true;
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().how, "deliver");
  EXPECT_EQ(mail().field("X-kavi-reprocess-type"), "(none)");
}

TEST_F(NotificationContentTest, FailsWhenTheAdapterReportsAnError) {
  catcher.answer(17, 0);
  EXPECT_FALSE(take());
  EXPECT_EQ(log.takeLines(1),
            (Texts{"Failed to send notification through SMTP Adapter, error 17.",
                   "Failed to send out notification, named 'tell the postmaster' (id=7)."}));
  EXPECT_EQ(catcher.mails.size(), 1u);
  record.attachMessage = true;
  EXPECT_FALSE(take());
  EXPECT_EQ(catcher.mails[1].how, "resend 1");
  log.takeLines();
}

class TransferEncodingTest : public testing::Test {
 protected:
  Texts without(std::initializer_list<std::pair<const char*, const char*>> fields) {
    fakes::Message mail;
    for (const auto& [name, value] : fields) {
      mail.root()->addField(name, value);
    }
    library::_remove_content_transfer_encoding_for_multipart_email(mail.root());
    return mail.fields();
  }
};

TEST_F(TransferEncodingTest, GoesFromAMultipart) {
  EXPECT_EQ(without({{"content-TYPE", "Multipart/mixed"}, {"CONTENT-transfer-encoding", "base64"}}),
            Texts{"content-TYPE:Multipart/mixed"});
}

TEST_F(TransferEncodingTest, GoesOnceOnly) {
  EXPECT_EQ(without({{"Content-Transfer-Encoding", "one"},
                     {"Content-Type", "multipart/mixed"},
                     {"Content-Transfer-Encoding", "two"}}),
            (Texts{"Content-Type:multipart/mixed", "Content-Transfer-Encoding:two"}));
}

TEST_F(TransferEncodingTest, StaysElsewhere) {
  const Texts text{"Content-Type:text/plain", "Content-Transfer-Encoding:base64"};
  EXPECT_EQ(without({{"Content-Type", "text/plain"}, {"Content-Transfer-Encoding", "base64"}}),
            text);
  EXPECT_EQ(without({{"Content-Transfer-Encoding", "base64"}}),
            Texts{"Content-Transfer-Encoding:base64"});
  EXPECT_EQ(without({{"Content-Type-X", "multipart/mixed"}, {"Content-Transfer-Encoding", "b"}}),
            (Texts{"Content-Type-X:multipart/mixed", "Content-Transfer-Encoding:b"}));
  EXPECT_EQ(without({{"Content-Type", "multipart/mixed"}}), Texts{"Content-Type:multipart/mixed"});
  EXPECT_EQ(without({}), Texts{});
}

TEST_F(TransferEncodingTest, IsLookedForBehindAFirstTypeThatSaysOtherwise) {
  EXPECT_EQ(without({{"Content-Type", "text/plain"},
                     {"Content-Type", "multipart/mixed"},
                     {"Content-Transfer-Encoding", "base64"}}),
            (Texts{"Content-Type:text/plain", "Content-Type:multipart/mixed"}));
}

TEST_F(TransferEncodingTest, NeedsARoot) {
  library::_remove_content_transfer_encoding_for_multipart_email(nullptr);
}

class GetHeaderTest : public NotifyTest {};

TEST_F(GetHeaderTest, FindsOrAdds) {
  fakes::Entity root;
  fakes::Header* const present = root.addField("subject", "here");
  EXPECT_EQ(ActNotify::_get_header(&root, "Subject"), present);
  OvMsgHeader* const added = ActNotify::_get_header(&root, "From");
  ASSERT_NE(added, nullptr);
  EXPECT_EQ(root.fields(), (Texts{"subject:here", "From:"}));
}

TEST_F(GetHeaderTest, SaysWhatItCouldNotDo) {
  class Forgetful : public fakes::Entity {
   public:
    OvMsgHeader* header(const char* /*name*/) override { return nullptr; }
  } forgetful;
  EXPECT_EQ(ActNotify::_get_header(&forgetful, "From"), nullptr);
  EXPECT_EQ(log.takeLines(), (fakes::LogLines{{2, "Failed to get header 'From'."}}));
  forgetful.facts().addsHeaders = false;
  EXPECT_EQ(ActNotify::_get_header(&forgetful, "From"), nullptr);
  EXPECT_EQ(log.takeLines(), (fakes::LogLines{{2, "Failed to set header 'From'."}}));
}

}  // namespace
