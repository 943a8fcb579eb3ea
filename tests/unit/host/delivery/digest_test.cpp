#include "host/delivery/digest.h"

#include <gtest/gtest.h>

namespace {

using namespace host::delivery;

// FIPS 180-4 gives these.
TEST(Sha256, KnownDigests) {
  EXPECT_EQ(toHex(Sha256().finish()),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  Sha256 abc;
  abc.update("a");
  abc.update("");
  abc.update("bc");
  EXPECT_EQ(toHex(abc.finish()),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

// RFC 4231 section 4.3.
TEST(HmacSha256, KnownMac) {
  EXPECT_EQ(toHex(hmacSha256("Jefe", "what do ya want for nothing?")),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
}

TEST(EqualInConstantTime, ComparesAllBytes) {
  EXPECT_TRUE(equalInConstantTime("", ""));
  EXPECT_TRUE(equalInConstantTime("abc", "abc"));
  EXPECT_FALSE(equalInConstantTime("abc", "abd"));
  EXPECT_FALSE(equalInConstantTime("abc", "ab"));
}

TEST(RandomBytes, GivesOthersEachTime) {
  EXPECT_EQ(randomBytes(32).size(), 32u);
  EXPECT_NE(randomBytes(32), randomBytes(32));
}

TEST(AppendDelimited, TellsPartsApart) {
  std::string first;
  appendDelimited(first, "ab");
  appendDelimited(first, "c");
  std::string second;
  appendDelimited(second, "a");
  appendDelimited(second, "bc");
  EXPECT_EQ(first, "2:ab,1:c,");
  EXPECT_NE(first, second);
}

}  // namespace
