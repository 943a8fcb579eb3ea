#include "library/platform/archive_area.h"

#include <gtest/gtest.h>

#include <string>

namespace {

bool construct(ArchiveArea& area, std::string setting) {
  return area.construct(setting.c_str(), static_cast<unsigned int>(setting.size()));
}

TEST(ArchiveArea, IsEmptyAndOffWhenNew) {
  ArchiveArea area;
  EXPECT_EQ(area.getType(), 4u);
  EXPECT_EQ(area.areaName, "");
  EXPECT_EQ(area.agingDays, 0u);
  EXPECT_FALSE(area.agingEnabled);
  EXPECT_EQ(area.serialize(), "0:0::");
}

TEST(ArchiveArea, ReadsWhatItWrites) {
  for (const char* setting : {"7:5:virus:", "0:5:virus:", "3:0::", "4294967295:3:a:b:"}) {
    ArchiveArea area;
    ASSERT_TRUE(construct(area, setting)) << setting;
    EXPECT_EQ(area.serialize(), setting);
  }
}

TEST(ArchiveArea, TurnsAgingOnExactlyWithDays) {
  ArchiveArea area;
  ASSERT_TRUE(construct(area, "7:5:virus:"));
  EXPECT_EQ(area.agingDays, 7u);
  EXPECT_TRUE(area.agingEnabled);
  EXPECT_EQ(area.areaName, "virus");
  ASSERT_TRUE(construct(area, "0:5:virus:"));
  EXPECT_FALSE(area.agingEnabled);
}

TEST(ArchiveArea, WritesNoDaysWhenAgingIsOff) {
  ArchiveArea area;
  area.agingDays = 12;
  area.areaName = "old";
  EXPECT_EQ(area.serialize(), "0:3:old:");
  EXPECT_EQ(area.agingDays, 0u);
}

TEST(ArchiveArea, SkipsAnyCharacterBehindTheDays) {
  ArchiveArea area;
  ASSERT_TRUE(construct(area, "7x5:virus:"));
  EXPECT_EQ(area.areaName, "virus");
  ASSERT_TRUE(construct(area, "x5:virus:"));  // no digits count as no days
  EXPECT_EQ(area.agingDays, 0u);
}

TEST(ArchiveArea, RefusesWhatIsNone) {
  for (const char* setting : {"", "7", "7:", "7:5:viru:", "7:5:virusX", "7:5:virus",
                              "7:6:virus:", "7:99999999999999999999:virus:", "7:-1:virus:"}) {
    ArchiveArea area;
    EXPECT_FALSE(construct(area, setting)) << setting;
  }
  ArchiveArea area;
  EXPECT_FALSE(area.construct(nullptr, 5));
}

TEST(ArchiveArea, KeepsTheDaysOfASettingThatFailsLater) {
  ArchiveArea area;
  EXPECT_FALSE(construct(area, "9:5:viru"));
  EXPECT_EQ(area.agingDays, 9u);
  EXPECT_TRUE(area.agingEnabled);
  EXPECT_EQ(area.areaName, "");
}

// The buffer ends right behind the NUL: the sanitizers see a reader that goes on.
TEST(ArchiveArea, StopsAtTheNulWhateverTheLengthSays) {
  for (const std::string setting : {"7", "7:", "7:5", "7:5:", "7:5:vi"}) {
    ArchiveArea area;
    EXPECT_FALSE(area.construct(setting.c_str(), 1000)) << setting;
  }
}

}  // namespace
