// Envelopes, and the recipients in them.
#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "library/platform/msgu.h"
#include "library/platform/ov_msg_error.h"
#include "library/platform/ov_msg_session_info.h"
#include "tests/unit/host/message/support/mail.h"

namespace message_test {
namespace {

using host::message::Message;

struct ReleaseSession {
  void operator()(OvMsgMailSessionInfo* session) const { OvMsg_DeleteSessionInfo(session); }
};
using Session = std::unique_ptr<OvMsgMailSessionInfo, ReleaseSession>;

TEST(Envelope, IsNoneUntilSet) {
  auto message = mail("Subject: s\n\n");
  EXPECT_EQ(message->sessionInfo(), nullptr);
  std::string text;
  std::list<std::string> list;
  EXPECT_FALSE(msgu::getRcpt(message.get(), text, list));
  EXPECT_TRUE(msgu::setRcpt(message.get(), "a@example.com", false));
  EXPECT_TRUE(msgu::getRcpt(message.get(), text, list));
  EXPECT_EQ(text, "a@example.com");
}

TEST(Envelope, OfANewMessageIsEmpty) {
  auto message = Message::create();
  Session session(message->sessionInfo());
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->sender(), nullptr);
  EXPECT_EQ(session->recipientCount(), 0);
  EXPECT_EQ(session->recipientAt(0), nullptr);
}

TEST(Envelope, TakesSendersInEveryForm) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"a@example.com", "a@example.com", ""},
      {" <a@example.com> ", "a@example.com", ""},
      {"\"Name, N\\\"\" <a@example.com>", "a@example.com", "Name, N\""},
      {"=?utf-8?Q?=C3=84?= <a@example.com>", "a@example.com", "\xC3\x84"},
      {"", "", ""},
      {"<>", "", ""},
  };
  for (const auto& [text, address, name] : cases) {
    auto message = Message::create();
    Session session(message->sessionInfo());
    EXPECT_EQ(session->setSender(text), 0) << text;
    ASSERT_NE(session->sender(), nullptr);
    EXPECT_STREQ(session->sender()->address(), address) << text;
    EXPECT_STREQ(session->sender()->displayName(), name) << text;
    EXPECT_EQ(message->envelope().sender, address);
  }
}

TEST(Envelope, TakesBracketsWithinQuotes) {
  const struct {
    const char* text;
    const char* address;
  } cases[] = {{"\"x>y\"@example.net", "\"x>y\"@example.net"},
               {"<\"x<y\"@example.net>", "\"x<y\"@example.net"},
               {"\"a < b\" <\"x\\\"<>y\"@example.net>", "\"x\\\"<>y\"@example.net"}};
  for (const auto& [text, address] : cases) {
    auto message = Message::create();
    Session session(message->sessionInfo());
    EXPECT_EQ(session->setSender(text), 0) << text;
    EXPECT_EQ(session->insertRecipient(0, text), 0) << text;
    EXPECT_EQ(message->envelope().sender, address);
    // What comes in with other mail must not keep a new recipient out.
    EXPECT_TRUE(
        msgu::setRcpt(message.get(), (std::string(text) + ";b@example.net").c_str(), false));
    EXPECT_EQ(message->envelope().recipients, (std::vector<std::string>{address, "b@example.net"}));
  }
  // Quotes that nobody closed are none.
  auto message = Message::create();
  Session session(message->sessionInfo());
  EXPECT_EQ(session->setSender("open \"quote <a@example.net>"), 0);
  EXPECT_EQ(message->envelope().sender, "a@example.net");
}

TEST(Envelope, RefusesWhatIsNoAddress) {
  auto message = Message::create();
  Session session(message->sessionInfo());
  ASSERT_EQ(session->setSender("old@example.com"), 0);
  for (const char* bad : {"a b@example.com", "a@example.com\r\nRCPT TO:<b>", "a<b@example.com",
                          "a@b,c@d", "@example.com", "a@", "a\tb@c", "\"open@example.com"}) {
    EXPECT_EQ(session->setSender(bad), OVMSGERR::MalformedAddress) << bad;
    EXPECT_EQ(session->insertRecipient(0, bad), OVMSGERR::MalformedAddress) << bad;
    EXPECT_FALSE(msgu::setRcpt(message.get(), bad, false)) << bad;
  }
  EXPECT_EQ(session->insertRecipient(0, ""), OVMSGERR::MalformedAddress);
  EXPECT_EQ(session->insertRecipient(-1, "a@example.com"), OVMSGERR::InvalidArgument);
  EXPECT_EQ(session->setSender(nullptr), OVMSGERR::InvalidArgument);
  EXPECT_STREQ(session->sender()->address(), "old@example.com");
  EXPECT_EQ(session->recipientCount(), 0);
}

TEST(Envelope, InsertsRecipientsAtPositions) {
  auto message = Message::create();
  Session session(message->sessionInfo());
  EXPECT_EQ(session->insertRecipient(7, "a@example.com"), 0);
  EXPECT_EQ(session->insertRecipient(0, "<b@example.com>"), 0);
  EXPECT_EQ(session->insertRecipient(1, "POP3_Mail_Recipient"), 0);
  EXPECT_EQ(session->recipientCount(), 3);
  EXPECT_STREQ(session->recipientAt(0), "b@example.com");
  EXPECT_STREQ(session->recipientAt(1), "POP3_Mail_Recipient");
  EXPECT_STREQ(session->recipientAt(2), "a@example.com");
}

TEST(Envelope, OfTheReceivedMessageStays) {
  auto message = mail("Subject: s\n\n");
  message->setEnvelope({"s@example.com", {"a@example.com"}, {}});
  EXPECT_TRUE(msgu::setRcpt(message.get(), "b@example.com", false));
  EXPECT_EQ(message->received().envelope().recipients, std::vector<std::string>{"a@example.com"});
  EXPECT_STREQ(message->received().id(), message->id());
  EXPECT_FALSE(message->changed()) << "the envelope is no part of the bytes";
}

TEST(SetRcpt, ReplacesOrAppends) {
  auto message = Message::create();
  std::string text;
  std::list<std::string> list;
  EXPECT_TRUE(msgu::setRcpt(message.get(), "a@example.com;;\"B\" <b@example.com>; ;", false));
  EXPECT_TRUE(msgu::getRcpt(message.get(), text, list));
  EXPECT_EQ(text, "a@example.com;b@example.com");
  EXPECT_EQ(list, (std::list<std::string>{"a@example.com", "b@example.com"}));
  EXPECT_TRUE(msgu::setRcpt(message.get(), "c@example.com", true));
  EXPECT_FALSE(msgu::setRcpt(message.get(), "d@example.com;not an address", true));
  EXPECT_TRUE(msgu::getRcpt(message.get(), text, list));
  EXPECT_EQ(text, "a@example.com;b@example.com;c@example.com");
  EXPECT_TRUE(msgu::setRcpt(message.get(), "   ", false));
  EXPECT_TRUE(msgu::getRcpt(message.get(), text, list));
  EXPECT_EQ(text, "");
  EXPECT_TRUE(list.empty());
  EXPECT_FALSE(msgu::setRcpt(nullptr, "a@example.com", false));
  EXPECT_FALSE(msgu::setRcpt(message.get(), nullptr, false));
}

// What the envelope holds is written as one text and read again whenever recipients change.
TEST(SetRcpt, DividesAtNoSemicolonWithinQuotes) {
  const std::list<std::string> whole{"\"a;b\"@example.com", "\"c\\\";d\"@example.com",
                                     "e@example.com"};
  auto message = Message::create();
  message->setEnvelope({"", {whole.begin(), whole.end()}, {}});
  std::string text;
  std::list<std::string> list;
  ASSERT_TRUE(msgu::getRcpt(message.get(), text, list));
  EXPECT_TRUE(msgu::setRcpt(message.get(), text.c_str(), false));
  EXPECT_TRUE(msgu::getRcpt(message.get(), text, list));
  EXPECT_EQ(list, whole);
  EXPECT_TRUE(msgu::setRcpt(message.get(), "\"F; G\" <f@example.com>;", true));
  EXPECT_TRUE(msgu::getRcpt(message.get(), text, list));
  EXPECT_EQ(list.back(), "f@example.com");
  EXPECT_FALSE(msgu::setRcpt(message.get(), "\"open;g@example.com", true));
  EXPECT_EQ(message->envelope().recipients.size(), 4u);
}

}  // namespace
}  // namespace message_test
