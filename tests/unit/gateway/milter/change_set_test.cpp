#include "gateway/milter/change_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "host/message/entity.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_header.h"
#include "tests/unit/gateway/messages.h"
#include "tests/unit/gateway/milter/mail_system.h"

namespace gateway::milter {
namespace {

using host::message::Envelope;
using host::message::Message;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const Envelope kEnvelope{"from@example.org", {"A@example.org", "b@example.org"}, {}};

std::string withCrLf(std::string text) {
  for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) {
    text.replace(at, 1, "\r\n");
  }
  return text;
}

/// As the milter gets it: line breaks are CR LF.
std::unique_ptr<Message> arrived(std::string text) {
  auto message = parsed(withCrLf(std::move(text)));
  message->setEnvelope(kEnvelope);
  return message;
}

constexpr char kMail[] =
    "Received: from a\n\tby b\nSubject: =?utf-8?q?=C3=A4?=\nX-A: 1\nx-a:2\nX-A: 3\n"
    "Content-Type: multipart/mixed; boundary=b\n\n"
    "--b\n\nhello\n--b\nContent-Type: application/x; name=a.exe\n\nMZ\n--b--\n";

TEST(ChangeSetTest, AnUntouchedMessageNeedsNothing) {
  for (const char* text : {kMail, "\nno header\n", "A: b\n\n", "A: b\n\n\n\nX: y\n"}) {
    const auto message = arrived(text);
    const auto changes = changesOf(*message, kEnvelope);
    ASSERT_TRUE(changes) << text;
    EXPECT_TRUE(changes->isEmpty()) << text;
  }
}

TEST(ChangeSetTest, ANewFieldIsOneInsertion) {
  const auto message = arrived(kMail);
  ASSERT_TRUE(msgu::setHeader(message->firstEntity(), "X-New", "yes", nullptr));
  const auto changes = changesOf(*message, kEnvelope);
  ASSERT_TRUE(changes);
  EXPECT_THAT(changes->headers,
              ElementsAre(HeaderEdit{HeaderEdit::Kind::Insert, "X-New", 7, " yes"}));
  EXPECT_FALSE(changes->body);
  EXPECT_EQ(delivered(*message, *changes), message->toString());
}

TEST(ChangeSetTest, AnEditThatIsTakenBackNeedsNothing) {
  const auto message = arrived(kMail);
  ASSERT_TRUE(msgu::setHeader(message->firstEntity(), "X-New", "yes", nullptr));
  ASSERT_TRUE(message->firstEntity()->removeHeader("X-New"));
  EXPECT_TRUE(changesOf(*message, kEnvelope)->isEmpty());
}

TEST(ChangeSetTest, APartThatGoesIsANewBodyAndNoHeader) {
  const auto message = arrived(kMail);
  auto* second = message->firstEntity()->nextEntity()->nextEntity();
  ASSERT_TRUE(msgu::removeEntityAndDummyParent(second, ""));
  const auto changes = changesOf(*message, kEnvelope);
  ASSERT_TRUE(changes);
  EXPECT_TRUE(changes->body);
  EXPECT_THAT(changes->headers, IsEmpty());
  EXPECT_EQ(delivered(*message, *changes), message->toString());
}

TEST(ChangeSetTest, ReplacedContentMayChangeBoth) {
  const auto message = arrived("Subject: s\nContent-Type: text/html\n\n<p>\n");
  ASSERT_TRUE(msgu::removeRootEntity(message->firstEntity(), "utf-8"));
  const auto changes = changesOf(*message, kEnvelope);
  ASSERT_TRUE(changes);
  EXPECT_TRUE(changes->body);
  EXPECT_EQ(delivered(*message, *changes), message->toString());
}

TEST(ChangeSetTest, RecipientsAreComparedWithoutRegardToCase) {
  const auto message = arrived(kMail);
  ASSERT_TRUE(msgu::setRcpt(message.get(), "a@EXAMPLE.org;c@example.org;C@example.org", false));
  const auto changes = changesOf(*message, kEnvelope);
  ASSERT_TRUE(changes);
  EXPECT_THAT(changes->removed, ElementsAre("b@example.org"));
  EXPECT_THAT(changes->added, ElementsAre("c@example.org"));
  EXPECT_THAT(changes->headers, IsEmpty());
  EXPECT_THAT(applyRecipients(kEnvelope.recipients, *changes),
              ElementsAre("A@example.org", "c@example.org"));
}

TEST(ChangeSetTest, ANewSenderIsAChange) {
  const auto message = arrived(kMail);
  message->setEnvelope({"other@example.org", kEnvelope.recipients, {}});
  const auto changes = changesOf(*message, kEnvelope);
  ASSERT_TRUE(changes);
  EXPECT_EQ(changes->sender, "other@example.org");
}

/// Edits a message at random, as actions do.
class RandomEdits {
 public:
  explicit RandomEdits(unsigned int seed) : random_(seed) {}

  void apply(Message& message) {
    for (std::size_t edits = 1 + below(6); edits > 0; --edits) applyOne(message);
  }

 private:
  void applyOne(Message& message) {
    host::message::Entity* root = message.firstEntity();
    if (root == nullptr) return;
    static constexpr const char* kNames[] = {"Subject", "X-A", "x-a", "X-New", "Received"};
    static constexpr const char* kValues[] = {"", "1", "two words", "a\r\n\tfolded", "\xC3\xA4"};
    const char* name = kNames[below(5)];
    const char* value = kValues[below(5)];
    const int count = root->headerCount();
    const int at = count == 0 ? 0 : static_cast<int>(below(static_cast<std::size_t>(count)));
    switch (below(7)) {
      case 0:
        msgu::setHeader(root, name, value, below(2) == 0 ? "utf-8" : nullptr);
        break;
      case 1:
        root->addHeader(at, name, value, nullptr);
        break;
      case 2:
        root->removeHeaderAt(at);
        break;
      case 3:
        root->removeHeader(name);
        break;
      case 4:
        if (OvMsgHeader* field = root->headerAt(at)) field->setRawValue(value, nullptr);
        break;
      case 5:
        if (below(3) == 0) removePart(message);
        break;
      default:
        msgu::setRcpt(&message, below(2) == 0 ? "c@example.org" : "B@example.org;a@example.org",
                      below(2) == 0);
    }
  }
  void removePart(Message& message) {
    auto* entity = message.firstEntity()->nextEntity();
    if (entity != nullptr) msgu::removeEntityAndDummyParent(entity, "");
  }
  std::size_t below(std::size_t bound) { return random_() % bound; }

  std::mt19937 random_;
};

TEST(ChangeSetTest, TheMailSystemEndsWithTheChangedMessage) {
  const std::vector<const char*> mails = {kMail, "Subject: s\n\nbody\n", "X-A: 1\nX-A: 1\nX-A:\n\n",
                                          "A: b\nSubject: x\n y\n z\n\n\n"};
  std::size_t bodies = 0;
  for (unsigned int seed = 0; seed < 8000; ++seed) {
    const auto message = arrived(mails[seed % mails.size()]);
    RandomEdits(seed).apply(*message);
    const auto changes = changesOf(*message, kEnvelope);
    ASSERT_TRUE(changes) << "seed " << seed << "\n" << message->toString();
    ASSERT_EQ(delivered(*message, *changes), message->toString()) << "seed " << seed;
    bodies += changes->body ? 1 : 0;
    const auto recipients = applyRecipients(kEnvelope.recipients, *changes);
    for (const std::string& address : message->envelope().recipients) {
      ASSERT_TRUE(std::any_of(
          recipients.begin(), recipients.end(),
          [&](const auto& each) { return host::message::equalsIgnoreCase(each, address); }))
          << "seed " << seed;
    }
    ASSERT_LE(recipients.size(), message->envelope().recipients.size()) << "seed " << seed;
  }
  EXPECT_GT(bodies, 50U) << "some edits have to reach the body";
}

}  // namespace
}  // namespace gateway::milter
