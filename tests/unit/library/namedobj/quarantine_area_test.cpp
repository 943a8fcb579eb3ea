#include "library/namedobj/quarantine_area.h"

#include <climits>
#include <cstring>
#include <memory>
#include <random>

#include "tests/unit/library/library_test.h"

namespace {

struct RecordCase {
  const char* what;
  std::string text;
  int length;  // -1: the text's own
  bool result;
  unsigned int days;  // of a record that held 99, "before"
  const char* name;
};

const RecordCase kRecords[] = {
    {"days and name", "7:5:virus:", -1, true, 7, "virus"},
    {"aging off", "0:5:virus:", -1, true, 0, "virus"},
    {"empty name", "3:0::", -1, true, 3, ""},
    {"any separator behind the days", "7x5:virus:", -1, true, 7, "virus"},
    {"any separator behind the length", "7:5xvirus:", -1, true, 7, "virus"},
    {"no digits at the days", ":5:virus:", -1, true, 0, "virus"},
    {"blanks and sign as strtoul reads them", " +7:5:virus:", -1, true, 7, "virus"},
    {"a name with separators", "7:5:a:b:c:", -1, true, 7, "a:b:c"},
    {"text behind the record", "7:5:virus:more", -1, true, 7, "virus"},
    {"largest number of days", "4294967295:5:virus:", -1, true, UINT_MAX, "virus"},
    {"days beyond 32 bits keep the low bits", "4294967298:5:virus:", -1, true, 2, "virus"},
    {"days whose low bits are 0", "4294967296:5:virus:", -1, true, 0, "virus"},
    {"empty", "", -1, false, 99, "before"},
    {"empty with a length", "", 10, false, 99, "before"},
    {"ends behind its number", "7", -1, false, 7, "before"},
    {"length ends behind the number", "7:5:virus:", 1, false, 7, "before"},
    {"length 0", "7:5:virus:", 0, false, 7, "before"},
    {"length beyond a text that ends behind its number", "7", 10, false, 7, "before"},
    {"ends behind the separator", "7:", -1, false, 7, "before"},
    {"length ends behind the separator", "7:5:virus:", 2, false, 7, "before"},
    {"name longer than announced", "7:4:virus:", -1, false, 7, "before"},
    {"name shorter than announced", "7:6:virus:", -1, false, 7, "before"},
    {"closing separator missing", "7:5:virus", -1, false, 7, "before"},
    {"length of the name beyond any text", "7:4294967295:virus:", -1, false, 7, "before"},
    {"length of the name beyond any number", "7:99999999999999999999:virus:", -1, false, 7,
     "before"},
    {"negative length of the name", "7:-1:virus:", -1, false, 7, "before"},
    // Only the digits of the name's length are taken off what remains, so that a length which cuts
    // into the name may still be enough.
    {"length that just allows the name", "7:5:virus:", 9, true, 7, "virus"},
    {"length one below that", "7:5:virus:", 8, false, 7, "before"},
};

class QuarantineAreaTest : public LibraryTest {
 protected:
  uiQuarantineArea area;
};

// A copy of the text's own size: a look behind its NUL is an error under a sanitizer.
bool construct(uiQuarantineArea& area, const std::string& text, int length = -1) {
  const std::unique_ptr<char[]> copy(new char[text.size() + 1]);
  std::memcpy(copy.get(), text.c_str(), text.size() + 1);
  const bool result =
      area.construct(copy.get(), length == -1 ? static_cast<unsigned int>(text.size())
                                              : static_cast<unsigned int>(length));
  EXPECT_EQ(std::memcmp(copy.get(), text.c_str(), text.size() + 1), 0) << "the text stays";
  return result;
}

TEST_F(QuarantineAreaTest, FreshRecordsAreEmptyWithoutAging) {
  EXPECT_EQ(area.areaName, "");
  EXPECT_EQ(area.agingDays, 0u);
  EXPECT_FALSE(area.agingEnabled);
  EXPECT_EQ(area.serialize(), "0:0::");
}

TEST_F(QuarantineAreaTest, IsOfTypeThree) { EXPECT_EQ(area.getType(), 3u); }

TEST_F(QuarantineAreaTest, ReadsSettingsField) {
  for (const RecordCase& test : kRecords) {
    SCOPED_TRACE(test.what);
    uiQuarantineArea record;
    record.areaName = "before";
    record.agingDays = 99;
    record.agingEnabled = test.days == 0;
    const bool untouched = test.days == 99;
    EXPECT_EQ(construct(record, test.text, test.length), test.result);
    EXPECT_EQ(record.agingDays, test.days);
    EXPECT_EQ(record.agingEnabled, !untouched && test.days != 0);
    EXPECT_EQ(record.areaName, test.name);
  }
  EXPECT_TRUE(log.takeLines().empty()) << "nothing is logged";
}

TEST_F(QuarantineAreaTest, RefusesNull) {
  area.agingDays = 5;
  EXPECT_FALSE(area.construct(nullptr, 10));
  EXPECT_EQ(area.agingDays, 5u);
}

TEST_F(QuarantineAreaTest, LeavesTheDaysChangedWhenTheNameFails) {
  area.agingDays = 1;
  EXPECT_FALSE(construct(area, "12:5:vir"));
  EXPECT_EQ(area.agingDays, 12u);
  EXPECT_TRUE(area.agingEnabled);
}

TEST_F(QuarantineAreaTest, GivesTheSameTextAgain) {
  for (const char* text : {"7:5:virus:", "0:5:virus:", "3:0::", "4294967295:3:a:b:"}) {
    uiQuarantineArea record;
    ASSERT_TRUE(construct(record, text)) << text;
    EXPECT_EQ(record.serialize(), text);
  }
}

TEST_F(QuarantineAreaTest, SerializingWithoutAgingSetsTheDaysToZero) {
  area.areaName = "virus";
  area.agingDays = 12;
  EXPECT_EQ(area.serialize(), "0:5:virus:");
  EXPECT_EQ(area.agingDays, 0u);
}

TEST_F(QuarantineAreaTest, SerializingWithAgingKeepsZeroDays) {
  area.areaName = "virus";
  area.agingEnabled = true;
  EXPECT_EQ(area.serialize(), "0:5:virus:");
  EXPECT_TRUE(area.agingEnabled);
}

TEST_F(QuarantineAreaTest, ReadsBackAnyName) {
  std::mt19937 random(7);  // NOLINT(cert-msc51-cpp): the same names in each run
  for (int round = 0; round < 2000; ++round) {
    uiQuarantineArea written;
    for (auto left = random() % 40; left > 0; --left) {
      written.areaName += static_cast<char>(1 + random() % 255);
    }
    written.agingDays = static_cast<unsigned int>(random() % 400);
    written.agingEnabled = written.agingDays != 0;
    uiQuarantineArea read;
    ASSERT_TRUE(construct(read, written.serialize())) << written.serialize();
    EXPECT_EQ(read.areaName, written.areaName);
    EXPECT_EQ(read.agingDays, written.agingDays);
    EXPECT_EQ(read.agingEnabled, written.agingEnabled);
  }
}

}  // namespace
