#include "host/delivery/filing_place.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using host::delivery::archivePlace;
using host::delivery::FilingPlace;
using host::delivery::kArchiveSuffix;
using host::delivery::kQuarantineSuffix;
using host::delivery::messageIdOf;
using host::delivery::quarantinePlace;

std::string pathOf(const FilingPlace& place, unsigned int number = 1) {
  return place.folderPath() + "/" + place.fileName(number);
}

TEST(FilingPlace, TakesTwoLevelsFromTheIdForQuarantine) {
  const std::pair<std::string, std::string> ids[] = {
      {"abc123", "/a/b/abc123.DF"},
      {"ab", "/a/b/ab.DF"},
      {"a", "/a/a.DF"},
      {"", "/.DF"},
      {std::string(36, 'x'), "/x/x/" + std::string(36, 'x') + ".DF"},
      {std::string(40, 'x'), "/x/x/" + std::string(36, 'x') + ".DF"},
      {"../../../etc/passwd", "/%2E/%2E/%2E.%2F..%2F..%2Fetc%2Fpasswd.DF"},
      {"/a", "/%2F/a/%2Fa.DF"},
      {"\xC3\xA4z", "/%C3/%A4/äz.DF"},
  };
  for (const auto& [id, path] : ids) EXPECT_EQ(pathOf(quarantinePlace(id)), path) << id;
}

TEST(FilingPlace, TakesAFolderForEachArea) {
  EXPECT_EQ(pathOf(archivePlace("Sales", "abc")), "/Sales/abc.eml");
  EXPECT_EQ(pathOf(archivePlace("", "abc")), "/%/abc.eml");
  EXPECT_EQ(pathOf(archivePlace("../x", "abc")), "/%2E.%2Fx/abc.eml");
  EXPECT_EQ(pathOf(archivePlace(std::string(300, 'a'), "abc")),
            "/" + std::string(198, 'a') + "%+/" + std::string(102, 'a') + "/abc.eml");
}

TEST(FilingPlace, NumbersFurtherCopies) {
  EXPECT_EQ(pathOf(quarantinePlace("abc"), 2), "/a/b/abc~2.DF");
  EXPECT_EQ(pathOf(archivePlace("x", "abc"), 10), "/x/abc~10.eml");
}

TEST(FilingPlace, FindsTheIdInItsFileNames) {
  for (const std::string id : {"abc123", "", "a", "x~1", "a.b", "%", ".DF", "\xFF"}) {
    for (const unsigned int number : {1u, 2u, 999u}) {
      std::string found = "before";
      EXPECT_TRUE(messageIdOf(quarantinePlace(id).fileName(number), kQuarantineSuffix, found));
      EXPECT_EQ(found, id);
      EXPECT_TRUE(messageIdOf(archivePlace("", id).fileName(number), kArchiveSuffix, found));
      EXPECT_EQ(found, id);
    }
  }
}

TEST(FilingPlace, FindsNoIdElsewhere) {
  for (const char* name : {"", "abc", "abc.df", "abc.DF.tmp", "a~.DF", "a~x.DF", "a~2~3.DF",
                           "a%2.DF", "%+.DF", "a%+.DF"}) {
    std::string found = "before";
    EXPECT_FALSE(messageIdOf(name, kQuarantineSuffix, found)) << name;
    EXPECT_EQ(found, "before") << name;
  }
}

}  // namespace
