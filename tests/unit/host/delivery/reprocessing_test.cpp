#include "host/delivery/reprocessing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/delivery/line_ends.h"
#include "host/delivery/outgoing_mail.h"
#include "host/delivery/reprocess_seal.h"
#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using namespace host::delivery;
using host::message::Buffer;
using host::message::Message;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using testing_host::TempFolder;

constexpr std::int64_t kNow = 1'700'000'000;
constexpr char kMarked[] =
    "Received: from here\r\nSubject: hello\r\nX-kavi-reprocess-rules: 12 15\r\n"
    "X-kavi-reprocess-type: readdress\r\n\r\nbody\r\n";
constexpr char kUnmarked[] = "Received: from here\r\nSubject: hello\r\n\r\nbody\r\n";
constexpr char kKept[] =
    "Received: from here\r\nSubject: hello\r\nX-kavi-reprocess-rules: 12 15\r\n"
    "X-kavi-reprocess-type: readdress\r\n\r\nbody\r\n";

class StringSink final : public OvMsgSink {
 public:
  bool write(const char* data, std::size_t size) override {
    text.append(data, size);
    return true;
  }
  std::string text;
};

std::string textOf(const SliceSource& source) {
  StringSink sink;
  EXPECT_TRUE(source.writeTo(sink));
  return sink.text;
}

class ReprocessingTest : public ::testing::Test {
 protected:
  std::string sealed(const std::string& mail = kMarked, unsigned int passes = 0) {
    OutgoingMail outgoing(mail);
    EXPECT_EQ(outgoing.seal(envelope_, passes, keys_, kNow), AdapterError::None);
    return textOf(outgoing.source());
  }

  std::unique_ptr<Message> receive(const std::string& mail) {
    auto message = Message::parse(Buffer::copyOf(mail));
    message->setEnvelope({envelope_.sender, envelope_.recipients, ""});
    return message;
  }

  Reprocessing admit(Message& message, std::int64_t now = kNow,
                     ReprocessTrust trust = ReprocessTrust::Sealed) {
    Reprocessing found;
    EXPECT_EQ(admitReprocessing(message, trust, &keys_, now, found), AdapterError::None);
    return found;
  }

  // What arrives is not honoured, and nothing of the fields is left.
  void expectRefused(const std::string& mail, const char* why, std::int64_t now = kNow) {
    const auto message = receive(mail);
    const Reprocessing found = admit(*message, now);
    EXPECT_FALSE(found.honoured) << mail;
    EXPECT_THAT(found.refusal, HasSubstr(why)) << mail;
    EXPECT_THAT(found.rules, IsEmpty());
    EXPECT_EQ(found.passes, 0u);
    EXPECT_THAT(message->toString(), Not(HasSubstr("X-kavi-reprocess")));
  }

  TempFolder folder_;
  SealKeys keys_{folder_ / "keys"};
  Envelope envelope_{"sender@example.org", {"b@example.com", "a@example.com"}};
};

TEST_F(ReprocessingTest, SealGoesInFrontAndChangesNothingElse) {
  const std::string mail = sealed();
  EXPECT_THAT(mail, StartsWith("X-kavi-reprocess-seal: 1 "));
  EXPECT_EQ(mail.substr(mail.find('\n') + 1), kMarked);
}

TEST_F(ReprocessingTest, SealGoesBehindAnMboxLine) {
  const std::string mail = sealed(std::string("From somebody Mon\r\n") + kMarked);
  EXPECT_THAT(mail, StartsWith("From somebody Mon\r\nX-kavi-reprocess-seal: 1 "));
}

TEST_F(ReprocessingTest, SealedFieldsCount) {
  const auto message = receive(sealed());
  const Reprocessing found = admit(*message);
  EXPECT_TRUE(found.honoured) << found.refusal;
  EXPECT_THAT(found.rules, ElementsAre(12, 15));
  EXPECT_EQ(found.type, "readdress");
  EXPECT_EQ(found.passes, 1u);
  EXPECT_EQ(found.refusal, "");
  // The seal is gone; what actions look at stays.
  EXPECT_EQ(message->toString(), kKept);
  removeReprocessing(*message);
  EXPECT_EQ(message->toString(), kUnmarked);
}

TEST_F(ReprocessingTest, SealSurvivesWhatMailSystemsDo) {
  const std::string mail = sealed();
  const std::string seal = mail.substr(0, mail.find('\n') + 1);
  const std::string rest = mail.substr(seal.size());
  std::string unix = mail;
  std::erase(unix, '\r');
  std::string folded = mail;
  folded.replace(folded.find(" 1 "), 1, "\r\n\t");
  const std::string variants[] = {
      "Received: from there\r\n\tby here\r\n" + mail,
      "Message-ID: <1@x>\r\nDate: today\r\n" + mail,
      seal + "Delivered-To: x\r\n" + rest,
      rest.substr(0, rest.find("Subject")) + seal + rest.substr(rest.find("Subject")),
      mail.substr(0, mail.size() - 2),
      mail + "\r\n\r\n",
      unix,
      folded,
  };
  for (const std::string& variant : variants) {
    const auto message = receive(variant);
    EXPECT_TRUE(admit(*message).honoured) << variant;
  }
}

TEST_F(ReprocessingTest, WhatWasSealedFromUnevenLineBreaksHolds) {
  // On the way every line break becomes CR LF, which shows fields where none were before.
  const std::string mails[] = {
      "Subject: x\nX-kavi-reprocess-rules: 1\nX-kavi-reprocess-type: q\n\nbody\n",
      "Subject: x\rX: y\r\nX-kavi-reprocess-rules: 1\r\nX-kavi-reprocess-type: q\r\n\r\nbo\rdy",
      "X-kavi-reprocess-rules: 1\r\nX-kavi-reprocess-type: q\r\rbody",
      "X-kavi-reprocess-rules: 1\r\nX-kavi-reprocess-type: q",
      "X-kavi-reprocess-rules: 1\r\r\nX-kavi-reprocess-type: q\r\r\n\r\r\nbo\r\rdy\r\r\n\r",
  };
  for (const std::string& mail : mails) {
    const std::string outgoing = sealed(mail);
    std::string_view left = outgoing;
    std::string arrived(2 * outgoing.size() + 2, '\0');
    CrLfEncoder encoder;
    std::size_t size = encoder.encode(left, arrived.data(), arrived.size());
    size += encoder.finish(arrived.data() + size, arrived.size() - size);
    arrived.resize(size);
    const auto message = receive(arrived);
    const Reprocessing found = admit(*message);
    EXPECT_TRUE(found.honoured) << mail << ": " << found.refusal;
  }
}

TEST_F(ReprocessingTest, OnlyOurListenerIsTrusted) {
  const auto message = receive(sealed());
  const Reprocessing found = admit(*message, kNow, ReprocessTrust::Nobody);
  EXPECT_FALSE(found.honoured);
  EXPECT_THAT(found.rules, IsEmpty());
  EXPECT_EQ(found.type, "");
  EXPECT_THAT(found.refusal, HasSubstr("not from the listener"));
  EXPECT_EQ(message->toString(), kUnmarked);
}

TEST_F(ReprocessingTest, PassesCountWhereverTheMessageComesIn) {
  const auto message = receive(sealed(kMarked, 3));
  const Reprocessing found = admit(*message, kNow, ReprocessTrust::Nobody);
  EXPECT_TRUE(found.astray);
  EXPECT_EQ(found.passes, 4u);
  const auto atHome = receive(sealed(kMarked, 3));
  EXPECT_FALSE(admit(*atHome).astray);
}

TEST_F(ReprocessingTest, AForgedSealCountsNoPasses) {
  const std::string mail = sealed();
  std::string otherBody = mail;
  otherBody.replace(otherBody.find("body"), 4, "bodi");
  std::string morePasses = mail;
  morePasses.replace(morePasses.find(" 1 ", morePasses.find("seal: 1 ") + 8), 3, " 5 ");
  ASSERT_NE(morePasses, mail);
  for (const std::string& forged : {otherBody, morePasses, std::string(kMarked)}) {
    const auto message = receive(forged);
    const Reprocessing found = admit(*message, kNow, ReprocessTrust::Nobody);
    EXPECT_FALSE(found.astray) << forged;
    EXPECT_EQ(found.passes, 0u) << forged;
    EXPECT_THAT(message->toString(), Not(HasSubstr("X-kavi-reprocess")));
  }
}

TEST_F(ReprocessingTest, UnsealedFieldsAreTakenOutOnTheWayIn) {
  for (const ReprocessTrust trust : {ReprocessTrust::Nobody, ReprocessTrust::Sealed}) {
    const auto message = receive(kMarked);
    const Reprocessing found = admit(*message, kNow, trust);
    EXPECT_FALSE(found.honoured);
    EXPECT_NE(found.refusal, "");
    EXPECT_EQ(message->toString(), kUnmarked);
  }
}

TEST_F(ReprocessingTest, MailWithoutThemIsNotTouched) {
  for (const ReprocessTrust trust :
       {ReprocessTrust::Nobody, ReprocessTrust::Sealed, ReprocessTrust::Assumed}) {
    const auto message = receive(kUnmarked);
    const Reprocessing found = admit(*message, kNow, trust);
    EXPECT_FALSE(found.honoured);
    EXPECT_EQ(found.refusal, "");
    EXPECT_FALSE(message->changed());
    const auto empty = receive("");
    EXPECT_FALSE(admit(*empty, kNow, trust).honoured);
  }
}

TEST_F(ReprocessingTest, AssumedFieldsNeedNoSeal) {
  const auto message = receive(kMarked);
  const Reprocessing found = admit(*message, kNow, ReprocessTrust::Assumed);
  EXPECT_TRUE(found.honoured);
  EXPECT_THAT(found.rules, ElementsAre(12, 15));
  EXPECT_EQ(found.type, "readdress");
  EXPECT_EQ(message->toString(), kKept);
}

TEST_F(ReprocessingTest, ForgeriesDoNotCount) {
  const std::string mail = sealed();
  const std::string seal = mail.substr(0, mail.find('\n') + 1);
  const std::string rest = mail.substr(seal.size());
  const auto with = [&](const std::string& from, const std::string& to) {
    std::string changed = mail;
    changed.replace(changed.find(from), from.size(), to);
    return changed;
  };
  expectRefused(rest, "not sealed");
  expectRefused(seal + mail, "not sealed exactly once");
  expectRefused("x-kavi-reprocess-SEAL: 1\r\n" + mail, "not sealed exactly once");
  expectRefused("X-kavi-reprocess-rules: 99\r\n" + mail, "more or less than one");
  expectRefused("X-kavi-reprocess-rules: 12 15\r\n" + mail, "more or less than one");
  expectRefused("X-KAVI-REPROCESS-TYPE: readdress\r\n" + mail, "more or less than one");
  expectRefused(with("X-kavi-reprocess-rules: 12 15\r\n", ""), "more or less than one");
  expectRefused(with("X-kavi-reprocess-type: readdress\r\n", ""), "more or less than one");
  expectRefused(with("12 15", "12 15 16"), "not for this message");
  expectRefused(with("12 15", "15 12"), "not for this message");
  expectRefused(with("readdress", "notification"), "not for this message");
  expectRefused(with("body", "bodi"), "not for this message");
  expectRefused(with("\r\n\r\nbody", "\r\n\r\n\r\nbody"), "not for this message");
  expectRefused(with("body\r\n", "body\r\nand more\r\n"), "not for this message");
  expectRefused(with("X-kavi-reprocess-seal: 1 ", "X-kavi-reprocess-seal: 2 "), "cannot be read");
  expectRefused(with("X-kavi-reprocess-seal: 1 ", "X-kavi-reprocess-seal: "), "cannot be read");
  expectRefused("X-kavi-reprocess-seal: forged\r\n" + rest, "cannot be read");
}

TEST_F(ReprocessingTest, SealOfAnotherMessageDoesNotCount) {
  const std::string mail = sealed();
  const Envelope others[] = {{"other@example.org", envelope_.recipients},
                             {"sender@example.org", {"a@example.com"}},
                             {"sender@example.org", {"a@example.com", "evil@example.net"}}};
  for (const Envelope& other : others) {
    const auto message = Message::parse(Buffer::copyOf(mail));
    message->setEnvelope({other.sender, other.recipients, ""});
    const Reprocessing found = admit(*message);
    EXPECT_FALSE(found.honoured);
    EXPECT_EQ(found.refusal, "the seal is not for this message");
  }
}

TEST_F(ReprocessingTest, SealExpires) {
  const std::string mail = sealed();
  const auto inTime = receive(mail);
  EXPECT_TRUE(admit(*inTime, kNow + kSealSeconds).honoured);
  expectRefused(mail, "expired", kNow + kSealSeconds + 1);
  // A clock that runs ahead a little is no forgery; a day is none that we gave.
  const auto ahead = receive(mail);
  EXPECT_TRUE(admit(*ahead, kNow - 300).honoured);
  expectRefused(mail, "future", kNow - 301);
}

TEST_F(ReprocessingTest, PassesEnd) {
  for (unsigned int passes = 0; passes < kMaxPasses; ++passes) {
    const auto message = receive(sealed(kMarked, passes));
    EXPECT_EQ(admit(*message).passes, passes + 1);
  }
  OutgoingMail mail(kMarked);
  EXPECT_EQ(mail.seal(envelope_, kMaxPasses, keys_, kNow), AdapterError::TooManyPasses);
  EXPECT_EQ(textOf(mail.source()), kMarked);
  // Properly sealed with one pass too many: not ours.
  SealKey key;
  ASSERT_EQ(keys_.signingKey(kNow, key), AdapterError::None);
  ReprocessSeal seal{key.id, kNow + 10, kMaxPasses + 1, ""};
  seal.mac = sealMac(key, seal, {"12 15", "readdress", envelope_, bodyDigest("body")});
  expectRefused("X-kavi-reprocess-seal: " + writeSeal(seal) + "\r\n" + kMarked, "too many passes");
}

TEST_F(ReprocessingTest, KeysRotate) {
  const std::string old = sealed();
  ASSERT_EQ(keys_.addKey(kNow + 1), AdapterError::None);
  const auto sealedBefore = receive(old);
  EXPECT_TRUE(admit(*sealedBefore, kNow + 2).honoured);
  OutgoingMail outgoing(kMarked);
  ASSERT_EQ(outgoing.seal(envelope_, 0, keys_, kNow + 2), AdapterError::None);
  const std::string present = textOf(outgoing.source());
  EXPECT_NE(present.substr(25, 16), old.substr(25, 16));
  const auto sealedAfter = receive(present);
  EXPECT_TRUE(admit(*sealedAfter, kNow + 2).honoured);
}

TEST_F(ReprocessingTest, UnknownKeyDoesNotCount) {
  const std::string mail = sealed();
  ASSERT_EQ(::unlink((folder_ / "keys").c_str()), 0);
  expectRefused(mail, "unknown key");
  EXPECT_EQ(testing_host::entryCount(folder_.path()), 0u);
}

TEST_F(ReprocessingTest, WithoutKeysNoSealHolds) {
  const auto message = receive(sealed());
  Reprocessing found;
  ASSERT_EQ(admitReprocessing(*message, ReprocessTrust::Sealed, nullptr, kNow, found),
            AdapterError::None);
  EXPECT_FALSE(found.honoured);
}

TEST_F(ReprocessingTest, UnreadableKeyIsATemporaryFailure) {
  const std::string mail = sealed();
  ASSERT_EQ(::chmod((folder_ / "keys").c_str(), 0), 0);
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0777), 0);
  const int result = testing_host::inChild([&] {
    if (!testing_host::becomeUnprivileged()) return testing_host::kNotPermitted;
    const auto message = receive(mail);
    Reprocessing found;
    if (admitReprocessing(*message, ReprocessTrust::Sealed, &keys_, kNow, found) !=
        AdapterError::KeyUnavailable) {
      return 1;
    }
    if (message->changed() || found.honoured) return 2;
    OutgoingMail outgoing(kMarked);
    if (outgoing.seal(envelope_, 0, keys_, kNow) != AdapterError::KeyUnavailable) return 3;
    // Without a seal nothing depends on the key.
    const auto unsealed = receive(kMarked);
    if (admitReprocessing(*unsealed, ReprocessTrust::Sealed, &keys_, kNow, found) !=
        AdapterError::None) {
      return 4;
    }
    return 0;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(ReprocessingTest, WhatCannotBeSealedGoesOutWithoutFields) {
  const std::string twice = std::string("X-kavi-reprocess-rules: 1\r\n") + kMarked;
  EXPECT_EQ(sealed(twice), kUnmarked);
  EXPECT_EQ(sealed(kUnmarked), kUnmarked);
  EXPECT_EQ(sealed(std::string("X-kavi-reprocess-seal: old\r\n") + kUnmarked), kUnmarked);
}

TEST_F(ReprocessingTest, OldSealIsReplaced) {
  const std::string again = sealed(sealed(kMarked, 0), 1);
  EXPECT_EQ(again.find("seal"), again.rfind("seal"));
  const auto message = receive(again);
  EXPECT_EQ(admit(*message).passes, 2u);
}

TEST_F(ReprocessingTest, OtherServersSeeNoFields) {
  const std::string sealedMail = sealed();
  OutgoingMail mail(sealedMail);
  mail.withoutFields();
  EXPECT_EQ(textOf(mail.source()), kUnmarked);
  // Bytes that need no change get none.
  const std::string odd = "Subject: x\rY: z\n\n\rbody\n";
  OutgoingMail other(odd);
  other.withoutFields();
  EXPECT_EQ(textOf(other.source()), odd);
}

TEST(ParseRuleIds, TakesPositiveNumbersOnly) {
  std::vector<unsigned int> rules{7};
  for (const char* faulty : {"", " ", "0", "-1", "+1", "1,2", "1 x", "x", "1 0", "4294967296",
                             "1.5", "0x1", " 1", "1\t2"}) {
    EXPECT_FALSE(parseRuleIds(faulty, rules)) << faulty;
    EXPECT_THAT(rules, ElementsAre(7));
  }
  ASSERT_TRUE(parseRuleIds("12 15", rules));
  EXPECT_THAT(rules, ElementsAre(12, 15));
  ASSERT_TRUE(parseRuleIds("4294967295  1 ", rules));
  EXPECT_THAT(rules, ElementsAre(4294967295u, 1));
}

}  // namespace
