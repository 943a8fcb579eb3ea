// The header fields of a notification.
#include <cstdlib>
#include <ctime>
#include <regex>

#include "library/notification/mail_identity.h"
#include "tests/fakes/local_time.h"
#include "tests/unit/library/notification/notify_test.h"

namespace {

using fakes::Conversions;

class NotificationHeadersTest : public NotifyTest {
 protected:
  /// How the subject was written, at last.
  std::string subject() { return mail().subject.empty() ? "(none)" : mail().subject.back(); }
};

TEST_F(NotificationHeadersTest, AreTheseInThisOrder) {
  EXPECT_TRUE(take());
  Texts names;
  for (const std::string& field : mail().fields) {
    names.push_back(field.substr(0, field.find(':')));
  }
  EXPECT_EQ(names, (Texts{"From", "Content-Type", "Subject", "Content-Transfer-Encoding", "Date",
                          "MIME-Version", "To"}));
  EXPECT_EQ(mail().field("Content-Type"), "text/html");
  EXPECT_EQ(mail().parameters, Texts{"charset=us-ascii"});
  EXPECT_EQ(mail().field("Content-Transfer-Encoding"), "base64");
  EXPECT_EQ(mail().field("MIME-Version"), "1.0");
  EXPECT_TRUE(logged(2, "set Content-Transfer-Encoding as base64"));
}

TEST_F(NotificationHeadersTest, FailTheNotificationWhenTheyCannotBeAdded) {
  prepare([](fakes::Message& mail) { mail.root()->facts().addsHeaders = false; });
  expectFailure("Failed to create Message object instance.");
}

TEST_F(NotificationHeadersTest, LeaveToOutWhenNobodyIsNamed) {
  record.recipients.clear();
  record.notifyRecipients = true;
  set("NotificationHideRecipients", "0");
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().field("To"), ";");
  record.notifyRecipients = false;
  prepare([](fakes::Message& mail) { mail.facts().recipients = {"who@a.example"}; });
  catcher.mails.clear();
  EXPECT_TRUE(take());
  EXPECT_TRUE(catcher.mails.empty()) << "replaced by nobody";
}

TEST_F(NotificationHeadersTest, SubjectIsWrittenInTheCharset) {
  set("PreferredCharset", "iso-8859-1");
  record.subject = "caf\xC3\xA9";
  EXPECT_TRUE(take());
  EXPECT_EQ(subject(), "caf\xE9 [iso-8859-1]");
  EXPECT_EQ(mail().parameters, Texts{"charset=iso-8859-1"});
}

TEST_F(NotificationHeadersTest, SubjectIsWrittenInUtf8WhenTheCharsetCannotCarryIt) {
  set("PreferredCharset", "iso-8859-1");
  record.subject = "\xE2\x82\xAC";
  EXPECT_TRUE(take());
  EXPECT_EQ(subject(), "\xE2\x82\xAC [utf-8]");
  EXPECT_EQ(mail().parameters, Texts{"charset=iso-8859-1"}) << "the body keeps the charset";
}

TEST_F(NotificationHeadersTest, SubjectIsWrittenInUtf8WhereThatIsTheCharset) {
  set("PreferredCharset", "utf-8");
  record.subject = "caf\xC3\xA9";
  EXPECT_TRUE(take());
  EXPECT_EQ(subject(), "caf\xC3\xA9 [utf-8]");
}

TEST_F(NotificationHeadersTest, SubjectInEightBitThatPassesForAsciiTurnsTheMailToUtf8) {
  Conversions::instance().keepsEightBit = true;
  record.subject = "caf\xC3\xA9";
  EXPECT_TRUE(take());
  EXPECT_EQ(subject(), "caf\xC3\xA9 [utf-8]");
  EXPECT_EQ(mail().parameters, Texts{"charset=utf-8"});
  EXPECT_EQ(mail().content, Texts{"text 'a rule matched' text/plain utf-8 base64"});
}

TEST_F(NotificationHeadersTest, SubjectThatIsLongIsWrittenWhole) {
  for (const std::size_t length : {1023u, 1024u, 1000000u}) {
    catcher.mails.clear();
    record.subject = std::string(length, 's');
    EXPECT_TRUE(take());
    EXPECT_EQ(mail().field("Subject"), record.subject);
    EXPECT_TRUE(subject().ends_with(length < 1024 ? " [us-ascii]" : " [utf-8]"));
  }
}

TEST_F(NotificationHeadersTest, SubjectThatIsEmptyIsWrittenInUtf8) {
  record.subject.clear();
  EXPECT_TRUE(take());
  EXPECT_EQ(subject(), " [utf-8]");
}

TEST_F(NotificationHeadersTest, SubjectThatCannotBeWrittenDoesNotStopTheMail) {
  prepare([](fakes::Message& mail) { mail.root()->addField("Subject", "")->facts().refusals = 1; });
  EXPECT_TRUE(take());
  EXPECT_EQ(log.takeLines(1), Texts{"Failed to set Subject string, error 6 ('other error')."});
  EXPECT_EQ(mail().field("Subject"), "");
}

TEST_F(NotificationHeadersTest, CharsetThatCannotBeDeclaredDoesNotStopTheMail) {
  prepare([](fakes::Message& mail) {
    mail.root()->addField("Content-Type", "")->facts().parameterAnswer = 5;
  });
  EXPECT_TRUE(take());
  EXPECT_TRUE(logged(2, "Cannot set charset to be 'us-ascii', error 5 ('malformed text')."));
  EXPECT_EQ(catcher.mails.size(), 1u);
}

TEST_F(NotificationHeadersTest, HaveAMessageIdWhereSet) {
  set("AddMsgIdInPolicyNotify", "1");
  set("scanner_id", "171", "kavi_manager");
  msg.setId("theid");
  EXPECT_TRUE(take());
  const std::regex form("<AB-[0-9A-F]{1,8}[0-9A-F]{1,8}-theid@[^@>]+>");
  const std::string first = mail().field("Message-ID");
  EXPECT_TRUE(std::regex_match(first, form)) << first;
  const std::uint64_t before = library::microsecondsNow();
  while (library::microsecondsNow() == before) {
  }
  EXPECT_TRUE(take());
  EXPECT_NE(catcher.mails[1].field("Message-ID"), first);
}

TEST_F(NotificationHeadersTest, HaveAnEmptyMessageIdWithoutAScannedMessage) {
  set("AddMsgIdInPolicyNotify", "1");
  EXPECT_TRUE(action.takeAction(nullptr, nullptr, flag, tokens, catcher, namedObjects));
  EXPECT_EQ(mail().field("Message-ID"), "");
}

TEST_F(NotificationHeadersTest, HaveNoMessageIdUnlessSet) {
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().field("Message-ID"), "(none)");
}

TEST_F(NotificationHeadersTest, HaveAnEmptyDateWithoutALocalTime) {
  const fakes::LocalTime none(nullptr);
  EXPECT_TRUE(take());
  EXPECT_EQ(mail().field("Date"), "");
}

TEST(MailMessageIdTest, WritesNumbersWithoutLeadingZeros) {
  EXPECT_EQ(library::mailMessageId(0, 0x100000002, "id", "host"), "<0-12-id@host>");
  EXPECT_EQ(library::mailMessageId(0xFFFFFFFF, 0x12345678ABCDEF01, "id", "host"),
            "<FFFFFFFF-12345678ABCDEF01-id@host>");
  EXPECT_EQ(library::mailMessageId(1, 0x500000000, "", ""), "<1-50-@>");
  EXPECT_EQ(library::mailMessageId(1, 1, std::string(2000, 'x').c_str(), "h").size(), 1023u);
}

TEST(MailMessageIdTest, TellsThisHostsName) {
  EXPECT_FALSE(library::hostName().empty());
  EXPECT_LE(library::hostName().size(), 255u);
}

/// Runs with a time zone of its own.
class MailDateTest : public testing::Test {
 protected:
  MailDateTest() {
    if (const char* zone = std::getenv("TZ")) {
      before_ = zone;
    }
  }
  ~MailDateTest() override {
    before_.empty() ? unsetenv("TZ") : setenv("TZ", before_.c_str(), 1);
    tzset();
  }
  static std::string dateIn(const char* zone, std::time_t time) {
    setenv("TZ", zone, 1);
    tzset();
    return library::mailDate(time);
  }

 private:
  std::string before_;
};

constexpr std::time_t kWinter = 1768435200;  // 2026-01-15 00:00:00 UTC
constexpr std::time_t kSummer = 1784073600;  // 2026-07-15 00:00:00 UTC

TEST_F(MailDateTest, IsLocalTimeWithItsZone) {
  EXPECT_EQ(dateIn("UTC0", kWinter), "Thu, 15 Jan 2026 00:00:00 +0000");
  EXPECT_EQ(dateIn("JST-9", kWinter), "Thu, 15 Jan 2026 09:00:00 +0900");
  EXPECT_EQ(dateIn("IST-5:30", kWinter), "Thu, 15 Jan 2026 05:30:00 +0530");
  EXPECT_EQ(dateIn("NST3:30", kWinter), "Wed, 14 Jan 2026 20:30:00 -0330");
}

TEST_F(MailDateTest, KnowsDaylightSaving) {
  const char* const kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";
  EXPECT_EQ(dateIn(kBerlin, kWinter), "Thu, 15 Jan 2026 01:00:00 +0100");
  EXPECT_EQ(dateIn(kBerlin, kSummer), "Wed, 15 Jul 2026 02:00:00 +0200");
  const char* const kNewYork = "EST5EDT,M3.2.0,M11.1.0";
  EXPECT_EQ(dateIn(kNewYork, kWinter), "Wed, 14 Jan 2026 19:00:00 -0500");
  EXPECT_EQ(dateIn(kNewYork, kSummer), "Tue, 14 Jul 2026 20:00:00 -0400");
}

TEST_F(MailDateTest, IsEmptyWithoutALocalTime) {
  const fakes::LocalTime none(nullptr);
  EXPECT_EQ(library::mailDate(kWinter), "");
}

}  // namespace
