#include "host/delivery/file_name.h"

#include <gtest/gtest.h>

#include "host/core/atomic_file.h"

namespace {

using host::delivery::numberedFileName;
using host::delivery::safeFileName;

TEST(SafeFileName, KeepsOrdinaryNames) {
  EXPECT_EQ(safeFileName("a.eml"), "a.eml");
  EXPECT_EQ(safeFileName("/var/mail/box/cur/1700.M1.host:2,S"), "1700.M1.host:2,S");
  EXPECT_EQ(safeFileName("報告書 2024.eml"), "報告書 2024.eml");
}

TEST(SafeFileName, NeverLeavesTheFolder) {
  EXPECT_EQ(safeFileName(".."), "_.");
  EXPECT_EQ(safeFileName("."), "_");
  EXPECT_EQ(safeFileName("../../etc/passwd"), "passwd");
  EXPECT_EQ(safeFileName("folder/"), "message");
  EXPECT_EQ(safeFileName(""), "message");
  EXPECT_EQ(safeFileName("-rf"), "_rf");
  EXPECT_EQ(safeFileName(std::string_view("a\0b/c\0d", 7)), "c_d");
  EXPECT_FALSE(host::core::isTemporaryName(safeFileName(".tmp-x")));
}

TEST(SafeFileName, ReplacesWhatCannotBePrinted) {
  EXPECT_EQ(safeFileName("a\nb\x7F\xC2\x9B\xFFz.eml"), "a_b___z.eml");
}

TEST(SafeFileName, CutsLongNamesBetweenCharactersAndKeepsTheExtension) {
  const std::string name = safeFileName(std::string(500, 'x') + ".eml");
  EXPECT_EQ(name, std::string(176, 'x') + ".eml");
  std::string japanese;
  for (int at = 0; at < 100; ++at) japanese += "件";
  EXPECT_EQ(safeFileName(japanese), japanese.substr(0, 180));
  EXPECT_EQ(safeFileName("x" + japanese), "x" + japanese.substr(0, 177));
  EXPECT_EQ(safeFileName("a." + std::string(500, 'x')).size(), 180u);
}

TEST(NumberedFileName, PutsTheNumberBeforeTheExtension) {
  EXPECT_EQ(numberedFileName("a.eml", 2), "a-2.eml");
  EXPECT_EQ(numberedFileName("a", 12), "a-12");
  EXPECT_EQ(numberedFileName("a.tar.gz", 2), "a.tar-2.gz");
  EXPECT_EQ(numberedFileName("a.this is no extension at all", 2),
            "a.this is no extension at all-2");
}

}  // namespace
