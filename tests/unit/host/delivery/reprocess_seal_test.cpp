#include "host/delivery/reprocess_seal.h"

#include <gtest/gtest.h>

#include "tests/unit/host/core/temp_folder.h"

namespace {

using namespace host::delivery;
using testing_host::TempFolder;

constexpr std::int64_t kNow = 1'700'000'000;
const std::string kMac(64, '7');

TEST(ReprocessSeal, IsReadAsItWasWritten) {
  const ReprocessSeal seal{"0123456789abcdef", kNow, 3, kMac};
  const std::string value = writeSeal(seal);
  EXPECT_EQ(value, "1 0123456789abcdef 1700000000 3 " + kMac);
  EXPECT_EQ(parseSeal(value), seal);
  // Mail systems may fold the field elsewhere.
  EXPECT_EQ(parseSeal("1  0123456789abcdef\t1700000000 3 " + kMac), seal);
}

TEST(ReprocessSeal, HasOneForm) {
  const std::string id = "0123456789abcdef";
  const std::string faulty[] = {
      "",
      " ",
      "1",
      "1 " + id + " 1700000000 3",
      "2 " + id + " 1700000000 3 " + kMac,
      "01 " + id + " 1700000000 3 " + kMac,
      "1 " + id + " 1700000000 3 " + kMac + " x",
      "1 " + id + " 1700000000 3 " + kMac.substr(1),
      "1 " + id + " 1700000000 3 " + kMac + "7",
      "1 " + id + " 1700000000 3 " + std::string(64, 'A'),
      "1 " + id + " 1700000000 0 " + kMac,
      "1 " + id + " 1700000000 03 " + kMac,
      "1 " + id + " 1700000000 +3 " + kMac,
      "1 " + id + " 1700000000 -3 " + kMac,
      "1 " + id + " 1700000000 99999999999 " + kMac,
      "1 " + id + " 01700000000 3 " + kMac,
      "1 " + id + " 0x10 3 " + kMac,
      "1 " + id + " 99999999999999999999 3 " + kMac,
      "1 " + id + "0 1700000000 3 " + kMac,
      "1 0123456789ABCDEF 1700000000 3 " + kMac,
      "1 ../../etc/passwd 1700000000 3 " + kMac,
  };
  for (const std::string& value : faulty) EXPECT_EQ(parseSeal(value), std::nullopt) << value;
}

TEST(BodyDigest, DoesNotCareForLineBreaksAndBlankLinesAtTheEnd) {
  const std::string same[] = {"a\nb",
                              "a\r\nb",
                              "a\rb",
                              "a\nb\n",
                              "a\r\nb\r\n",
                              "a\nb\n\n",
                              "a\r\nb\r\n\r\n\r\n",
                              "a\rb\r\r\r",
                              "a\r\r\nb\r\r\n",
                              "a\r\r\r\nb"};
  for (const std::string& body : same) EXPECT_EQ(bodyDigest(body), bodyDigest(same[0])) << body;
  const std::string others[] = {"",      "ab",    "a\n\nb", "\na\nb", "a\nb ", "a\nb\n ",
                                "a \nb", "a\nb.", "b\na",   "a\n\rb", "a\r\rb"};
  for (const std::string& body : others) EXPECT_NE(bodyDigest(body), bodyDigest(same[0])) << body;
  EXPECT_EQ(bodyDigest(""), bodyDigest("\r\n\n\r"));
}

TEST(BodyDigest, CountsManyBlankLinesInTheMiddle) {
  for (const std::size_t count : {15, 16, 17, 32, 33, 1000}) {
    const std::string body = "a" + std::string(count, '\n') + "b";
    EXPECT_NE(bodyDigest(body), bodyDigest("a" + std::string(count + 1, '\n') + "b")) << count;
    EXPECT_NE(bodyDigest(body), bodyDigest("a" + std::string(count - 1, '\n') + "b")) << count;
  }
}

TEST(DividedMail, DividesAsMailSystemsDo) {
  struct Case {
    const char* mail;
    const char* header;
    const char* body;
  };
  const Case cases[] = {
      {"", "", ""},
      {"\r\n", "", ""},
      {"\r\nbody", "", "body"},
      {"A: 1\r\n\r\nbody", "A: 1\r\n", "body"},
      {"A: 1\n\nbody", "A: 1\r\n", "body"},
      {"A: 1\r\rbody", "A: 1\r\n", "body"},
      {"A: 1\r\r\nB: 2\r\r\n\r\r\nbody\r\r\n", "A: 1\r\nB: 2\r\n", "body\r\r\n"},
      {"A: 1\rB: 2\n\nbody", "A: 1\r\nB: 2\r\n", "body"},
      {"A: 1\r\n folded\r\n\tmore\r\n\r\nbody", "A: 1\r\n folded\r\n\tmore\r\n", "body"},
      {"A: 1\r\nno field\r\nB: 2\r\n\r\nx", "A: 1\r\n", "no field\r\nB: 2\r\n\r\nx"},
      {" starts with a blank\r\n", "", " starts with a blank\r\n"},
      {"From somebody Mon\nA: 1\n\nbody", "A: 1\r\n", "body"},
      {"A: 1", "A: 1\r\n", ""},
  };
  for (const Case& tested : cases) {
    const DividedMail mail(tested.mail);
    EXPECT_EQ(mail.headerWithout({}), tested.header) << tested.mail;
    EXPECT_EQ(mail.body(), tested.body) << tested.mail;
  }
}

TEST(DividedMail, FindsAndLeavesOutFields) {
  const DividedMail mail("A: 1\nX-b:  two\n words \nA: 3\nx-B: 4\n\nX-B: body\n");
  EXPECT_EQ(mail.values("X-B"), (std::vector<std::string>{"two words", "4"}));
  EXPECT_EQ(mail.values("a").size(), 2u);
  EXPECT_TRUE(mail.values("c").empty());
  EXPECT_EQ(mail.headerWithout({"X-B"}), "A: 1\r\nA: 3\r\n");
  EXPECT_EQ(mail.rest(), "\nX-B: body\n");
}

class SealTest : public ::testing::Test {
 protected:
  SealTest() { keys_.signingKey(kNow, key_); }

  SealedMail mail() const { return {"12 15", "quarantine", envelope_, bodyDigest("body")}; }

  TempFolder folder_;
  SealKeys keys_{folder_ / "keys"};
  SealKey key_;
  Envelope envelope_{"sender@example.org", {"b@example.com", "a@example.com"}};
};

TEST_F(SealTest, HoldsForWhatWasSealed) {
  std::string value;
  ASSERT_EQ(makeSeal(keys_, mail(), 0, kNow, value), AdapterError::None);
  const auto seal = parseSeal(value);
  ASSERT_TRUE(seal.has_value());
  EXPECT_EQ(seal->passes, 1u);
  EXPECT_EQ(seal->expiry, kNow + 24 * 3600);
  EXPECT_EQ(seal->keyId, key_.id);
  EXPECT_TRUE(isSealedBy(key_, *seal, mail()));
}

TEST_F(SealTest, CoversEveryPart) {
  std::string value;
  ASSERT_EQ(makeSeal(keys_, mail(), 0, kNow, value), AdapterError::None);
  const ReprocessSeal seal = *parseSeal(value);
  const Envelope turned{"sender@example.org", {"a@example.com", "b@example.com"}};
  SealedMail same{"12 15", "quarantine", turned, bodyDigest("body\r\n")};
  EXPECT_TRUE(isSealedBy(key_, seal, same));

  const Envelope others[] = {
      {"other@example.org", envelope_.recipients},
      {"", envelope_.recipients},
      {"sender@example.org", {"a@example.com"}},
      {"sender@example.org", {"a@example.com", "b@example.com", "b@example.com"}},
      {"sender@example.org", {"a@example.com", "c@example.com"}},
      {"sender@example.org", {}},
  };
  for (const Envelope& other : others) {
    EXPECT_FALSE(isSealedBy(key_, seal, {"12 15", "quarantine", other, bodyDigest("body")}));
  }
  EXPECT_FALSE(isSealedBy(key_, seal, {"12", "quarantine", envelope_, bodyDigest("body")}));
  EXPECT_FALSE(isSealedBy(key_, seal, {"12 15", "readdress", envelope_, bodyDigest("body")}));
  EXPECT_FALSE(isSealedBy(key_, seal, {"12 15", "quarantine", envelope_, bodyDigest("bodi")}));
  // Parts cannot be moved into each other.
  EXPECT_FALSE(isSealedBy(key_, seal, {"12 15q", "uarantine", envelope_, bodyDigest("body")}));

  ReprocessSeal changed = seal;
  ++changed.expiry;
  EXPECT_FALSE(isSealedBy(key_, changed, mail()));
  changed = seal;
  ++changed.passes;
  EXPECT_FALSE(isSealedBy(key_, changed, mail()));
  changed = seal;
  changed.mac[63] = changed.mac[63] == '0' ? '1' : '0';
  EXPECT_FALSE(isSealedBy(key_, changed, mail()));
  SealKey other = key_;
  other.secret[0] = static_cast<char>(other.secret[0] ^ 1);
  EXPECT_FALSE(isSealedBy(other, seal, mail()));
  other = key_;
  other.id = std::string(16, '0');
  EXPECT_FALSE(isSealedBy(other, seal, mail()));
}

TEST_F(SealTest, NullSenderIsTheOneThatWasNeverSet) {
  const Envelope never{std::nullopt, {"a@example.com"}};
  const Envelope null{"", {"a@example.com"}};
  std::string value;
  ASSERT_EQ(makeSeal(keys_, {"1", "x", never, {}}, 0, kNow, value), AdapterError::None);
  EXPECT_TRUE(isSealedBy(key_, *parseSeal(value), {"1", "x", null, {}}));
}

TEST_F(SealTest, CountsPasses) {
  std::string value = "as it was";
  for (unsigned int passes = 0; passes < kMaxPasses; ++passes) {
    ASSERT_EQ(makeSeal(keys_, mail(), passes, kNow, value), AdapterError::None);
    EXPECT_EQ(parseSeal(value)->passes, passes + 1);
  }
  const std::string last = value;
  EXPECT_EQ(makeSeal(keys_, mail(), kMaxPasses, kNow, value), AdapterError::TooManyPasses);
  EXPECT_EQ(makeSeal(keys_, mail(), ~0u, kNow, value), AdapterError::TooManyPasses);
  EXPECT_EQ(value, last);
}

}  // namespace
