#include "library/namedobj/stamp_area.h"

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
  unsigned int position;  // of a record that held 99, 99, "stamp before", "aux before"
  unsigned int mode;
  const char* stamp;
  const char* aux;
};

const RecordCase kRecords[] = {
    {"all fields", "1:2:5:Hello:3:aux:", -1, true, 1, 2, "Hello", "aux"},
    {"empty second text", "1:2:5:Hello:0::", -1, true, 1, 2, "Hello", ""},
    {"empty texts", "1:1:0::0::", -1, true, 1, 1, "", ""},
    {"any separators", "1x1y2:Hi:0::", -1, true, 1, 1, "Hi", ""},
    {"any separators behind the lengths", "1:1:2xHi:0y:", -1, true, 1, 1, "Hi", ""},
    {"blanks and signs as strtoul reads them", " +7:\t+8:2:Hi:0::", -1, true, 7, 8, "Hi", ""},
    {"texts with separators", "1:1:5:a:b:c:3:::::", -1, true, 1, 1, "a:b:c", ":::"},
    {"stored line breaks and tokens", "1:1:12:a\x03%SENDER%b\x03:0::", -1, true, 1, 1,
     "a\x03%SENDER%b\x03", ""},
    {"text behind the record", "1:1:2:Hi:0::more", -1, true, 1, 1, "Hi", ""},
    {"largest numbers", "4294967294:4294967294:0::0::", -1, true, 4294967294u, 4294967294u, "", ""},
    {"empty", "", -1, false, 99, 99, "stamp before", "aux before"},
    {"empty with a length", "", 10, false, 99, 99, "stamp before", "aux before"},
    {"position 0", "0:1:2:Hi:0::", -1, false, 99, 99, "stamp before", "aux before"},
    {"no position", ":1:2:Hi:0::", -1, false, 99, 99, "stamp before", "aux before"},
    {"no digits", "top:1:2:Hi:0::", -1, false, 99, 99, "stamp before", "aux before"},
    {"position 4294967295", "4294967295:1:2:Hi:0::", -1, false, 99, 99, "stamp before",
     "aux before"},
    {"position beyond 32 bits", "4294967297:1:2:Hi:0::", -1, false, 99, 99, "stamp before",
     "aux before"},
    {"position beyond 64 bits", "99999999999999999999:1:2:Hi:0::", -1, false, 99, 99,
     "stamp before", "aux before"},
    {"position -1", "-1:1:2:Hi:0::", -1, false, 99, 99, "stamp before", "aux before"},
    {"mode 0", "1:0:2:Hi:0::", -1, false, 1, 99, "stamp before", "aux before"},
    {"no mode", "1::2:Hi:0::", -1, false, 1, 99, "stamp before", "aux before"},
    {"mode 4294967295", "1:4294967295:2:Hi:0::", -1, false, 1, 99, "stamp before", "aux before"},
    {"mode beyond 32 bits", "1:4294967298:2:Hi:0::", -1, false, 1, 99, "stamp before",
     "aux before"},
    {"ends behind the position", "1", -1, false, 1, 99, "stamp before", "aux before"},
    {"ends behind the position, longer length", "1", 20, false, 1, 99, "stamp before",
     "aux before"},
    {"ends behind the first separator", "1:", -1, false, 1, 99, "stamp before", "aux before"},
    {"ends behind the mode", "1:2", -1, false, 1, 2, "stamp before", "aux before"},
    {"ends behind the mode, longer length", "1:2", 20, false, 1, 2, "stamp before", "aux before"},
    {"ends behind the second separator", "1:2:", -1, false, 1, 2, "stamp before", "aux before"},
    {"ends behind the stamp", "1:2:2:Hi:", -1, false, 1, 2, "Hi", "aux before"},
    {"ends within the stamp", "1:2:5:Hi", -1, false, 1, 2, "stamp before", "aux before"},
    {"ends within the second text", "1:2:2:Hi:9:aux", -1, false, 1, 2, "Hi", "aux before"},
    {"stamp longer than announced", "1:2:1:Hi:0::", -1, false, 1, 2, "stamp before", "aux before"},
    {"closing separator missing", "1:2:2:Hi:2:ab", -1, false, 1, 2, "Hi", "aux before"},
    {"length of the stamp beyond any text", "1:2:4294967295:Hi:0::", -1, false, 1, 2,
     "stamp before", "aux before"},
    // Nothing is checked against the length behind the first number.
    {"length ends behind the position", "1:2:2:Hi:0::", 1, false, 1, 2, "stamp before",
     "aux before"},
    {"length 0", "1:2:2:Hi:0::", 0, false, 1, 2, "stamp before", "aux before"},
    {"length ends behind the mode", "1:2:2:Hi:0::", 3, false, 1, 2, "stamp before", "aux before"},
    {"length ends behind the second separator", "1:2:2:Hi:0::", 4, false, 1, 2, "stamp before",
     "aux before"},
    // Only the digits of the lengths are taken off what remains, so that a length that cuts into
    // the texts may still be enough.
    {"length that just allows the stamp", "1:2:2:Hi:0::", 8, true, 1, 2, "Hi", ""},
    {"length one below that", "1:2:2:Hi:0::", 7, false, 1, 2, "stamp before", "aux before"},
    {"length that allows the stamp only", "1:2:1:H:4:auxi:", 7, false, 1, 2, "H", "aux before"},
};

class StampAreaTest : public LibraryTest {
 protected:
  uiStampArea stamp;
};

// A copy of the text's own size: a look behind its NUL is an error under a sanitizer.
bool construct(uiStampArea& stamp, const std::string& text, int length = -1) {
  const std::unique_ptr<char[]> copy(new char[text.size() + 1]);
  std::memcpy(copy.get(), text.c_str(), text.size() + 1);
  const bool result =
      stamp.construct(copy.get(), length == -1 ? static_cast<unsigned int>(text.size())
                                               : static_cast<unsigned int>(length));
  EXPECT_EQ(std::memcmp(copy.get(), text.c_str(), text.size() + 1), 0) << "the text stays";
  return result;
}

TEST_F(StampAreaTest, FreshRecordsCanBeStoredAndReadBack) {
  EXPECT_NE(stamp.insertPosition, 0u);
  EXPECT_NE(stamp.signedTnefMode, 0u);
  EXPECT_NE(stamp.signedTnefMode, 2u) << "signed messages are left alone";
  EXPECT_EQ(stamp.stampText, "");
  EXPECT_EQ(stamp.auxText, "");
  uiStampArea read;
  EXPECT_TRUE(construct(read, stamp.serialize()));
}

TEST_F(StampAreaTest, IsOfTypeTwo) { EXPECT_EQ(stamp.getType(), 2u); }

TEST_F(StampAreaTest, ReadsSettingsField) {
  for (const RecordCase& test : kRecords) {
    SCOPED_TRACE(test.what);
    uiStampArea record;
    record.insertPosition = 99;
    record.signedTnefMode = 99;
    record.stampText = "stamp before";
    record.auxText = "aux before";
    EXPECT_EQ(construct(record, test.text, test.length), test.result);
    EXPECT_EQ(record.insertPosition, test.position);
    EXPECT_EQ(record.signedTnefMode, test.mode);
    EXPECT_EQ(record.stampText, test.stamp);
    EXPECT_EQ(record.auxText, test.aux);
  }
  EXPECT_TRUE(log.takeLines().empty()) << "nothing is logged";
}

TEST_F(StampAreaTest, RefusesNull) { EXPECT_FALSE(stamp.construct(nullptr, 10)); }

TEST_F(StampAreaTest, WritesTheStampFirst) {
  stamp.insertPosition = 1;
  stamp.signedTnefMode = 1;
  stamp.stampText = "Hi";
  EXPECT_EQ(stamp.serialize(), "1:1:2:Hi:0::");
  stamp.insertPosition = 4294967294u;
  stamp.auxText = "a:b";
  EXPECT_EQ(stamp.serialize(), "4294967294:1:2:Hi:3:a:b:");
}

TEST_F(StampAreaTest, GivesTheSameTextAgain) {
  for (const char* text : {"1:2:5:Hello:0::", "1:1:2:Hi:0::", "7:3:0::4:a:b::"}) {
    uiStampArea record;
    ASSERT_TRUE(construct(record, text)) << text;
    EXPECT_EQ(record.serialize(), text);
  }
}

TEST_F(StampAreaTest, ReadsBackAnyTexts) {
  std::mt19937 random(7);  // NOLINT(cert-msc51-cpp): the same texts in each run
  for (int round = 0; round < 2000; ++round) {
    uiStampArea written;
    for (std::string* text : {&written.stampText, &written.auxText}) {
      for (auto left = random() % 40; left > 0; --left) {
        *text += static_cast<char>(1 + random() % 255);
      }
    }
    written.insertPosition = static_cast<unsigned int>(1 + random() % 3);
    written.signedTnefMode = static_cast<unsigned int>(1 + random() % 3);
    uiStampArea read;
    ASSERT_TRUE(construct(read, written.serialize())) << written.serialize();
    EXPECT_EQ(read.stampText, written.stampText);
    EXPECT_EQ(read.auxText, written.auxText);
    EXPECT_EQ(read.insertPosition, written.insertPosition);
    EXPECT_EQ(read.signedTnefMode, written.signedTnefMode);
  }
}

}  // namespace
