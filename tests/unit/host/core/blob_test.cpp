#include "library/platform/blob.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <map>
#include <string>

#include "tests/unit/host/core/cpu_time.h"

namespace {

using Fields = std::map<std::string, std::string>;

std::string written(const Fields& fields) {
  std::string text = "what was there before";
  Blob::writeBlob(text, fields);
  return text;
}

std::string everyByte() {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  return bytes;
}

TEST(BlobText, IsTheDocumentedOne) {
  EXPECT_EQ(written({}), "{}");
  EXPECT_EQ(written({{"hour", "8"}, {"min", "30"}}), "{hour=8,min=30}");
  EXPECT_EQ(written({{"a b", "{,=}%\n\x7F\xC3\xA9"}}), "{a b=%7B%2C%3D%7D%25%0A%7F%C3%A9}");
  EXPECT_EQ(written({{"", ""}}), "{=}");
}

TEST(BlobText, CarriesEveryByteInPrintableAscii) {
  const Fields fields{{everyByte(), "x"}, {"key", everyByte()}, {"", std::string(3, '\0')}};
  const std::string text = written(fields);
  EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c <= 0x7E; }));
  const char* cursor = text.c_str();
  Fields back;
  ASSERT_TRUE(Blob::readBlob(cursor, back));
  EXPECT_EQ(back, fields);
  EXPECT_EQ(cursor, text.c_str() + text.size());
}

TEST(BlobRead, MovesBehindTheRecordAndReplacesTheFields) {
  const char* cursor = "{a=1}{b=2}rest";
  Fields fields{{"old", "x"}};
  ASSERT_TRUE(Blob::readBlob(cursor, fields));
  EXPECT_EQ(fields, (Fields{{"a", "1"}}));
  ASSERT_TRUE(Blob::readBlob(cursor, fields));
  EXPECT_EQ(fields, (Fields{{"b", "2"}}));
  EXPECT_STREQ(cursor, "rest");
  EXPECT_FALSE(Blob::readBlob(cursor, fields));
}

TEST(BlobRead, TakesBothCasesOfHexadecimal) {
  const char* cursor = "{a=%c3%A9}";
  Fields fields;
  ASSERT_TRUE(Blob::readBlob(cursor, fields));
  EXPECT_EQ(fields["a"], "\xC3\xA9");
}

struct NoRecord {
  const char* text;
};

class BlobReadRefuses : public ::testing::TestWithParam<NoRecord> {};

TEST_P(BlobReadRefuses, AndLeavesEverythingAsItWas) {
  const char* cursor = GetParam().text;
  Fields fields{{"old", "x"}};
  EXPECT_FALSE(Blob::readBlob(cursor, fields));
  EXPECT_EQ(cursor, GetParam().text);
  EXPECT_EQ(fields, (Fields{{"old", "x"}}));
}

INSTANTIATE_TEST_SUITE_P(Table, BlobReadRefuses,
                         ::testing::Values(NoRecord{nullptr}, NoRecord{""}, NoRecord{"a=1"},
                                           NoRecord{" {a=1}"}, NoRecord{"{"}, NoRecord{"{a"},
                                           NoRecord{"{a="}, NoRecord{"{a=1"}, NoRecord{"{a=1,"},
                                           NoRecord{"{a=1,}"}, NoRecord{"{,a=1}"}, NoRecord{"{a}"},
                                           NoRecord{"{a=1;b=2}"}, NoRecord{"{a=1=2}"},
                                           NoRecord{"{a={}}"}, NoRecord{"{a=%}"}, NoRecord{"{a=%4"},
                                           NoRecord{"{a=%4}"}, NoRecord{"{a=%G0}"},
                                           NoRecord{"{a=\n}"}, NoRecord{"{a=\xC3\xA9}"},
                                           NoRecord{"{a=1,a=2}"}, NoRecord{"{a=1,%61=2}"}));

// Every prefix of a record ends at the last byte of a page, with a forbidden page behind it.
TEST(BlobRead, NeverPassesTheTerminatingNul) {
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  void* memory =
      ::mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  char* end = static_cast<char*>(memory) + page;
  ASSERT_EQ(::mprotect(end, page, PROT_NONE), 0);
  const std::string record = "{hour=%38,m%69n=30}";
  for (std::size_t length = 0; length <= record.size(); ++length) {
    char* start = end - length - 1;
    std::memcpy(start, record.data(), length);
    start[length] = '\0';
    const char* cursor = start;
    Fields fields;
    EXPECT_EQ(Blob::readBlob(cursor, fields), length == record.size()) << length;
  }
  ::munmap(memory, 2 * page);
}

TEST(BlobBind, MovesTextsBothWays) {
  Fields fields;
  std::string member("a\0b", 3);
  ASSERT_TRUE(Blob::bindBlobField(fields, "rcpt", member, true));
  EXPECT_EQ(fields["rcpt"], member);
  EXPECT_EQ(member.size(), 3u);
  std::string back = "other";
  ASSERT_TRUE(Blob::bindBlobField(fields, "rcpt", back, false));
  EXPECT_EQ(back, member);
  EXPECT_FALSE(Blob::bindBlobField(fields, "missing", back, false));
  EXPECT_EQ(back, member);
  EXPECT_FALSE(Blob::bindBlobField(fields, nullptr, back, true));
}

TEST(BlobBind, MovesNumbersBothWays) {
  for (const int number : {0, 8, -1, INT_MAX, INT_MIN}) {
    Fields fields;
    int member = number;
    ASSERT_TRUE(Blob::bindBlobField(fields, "n", member, true));
    int back = 42;
    ASSERT_TRUE(Blob::bindBlobField(fields, "n", back, false));
    EXPECT_EQ(back, number);
  }
}

TEST(BlobBind, RefusesWhatIsNoNumber) {
  for (const char* text : {"", " 8", "8 ", "8x", "x", "+8", "0x8", "--8", "2147483648",
                           "-2147483649", "99999999999999999999", "8.0"}) {
    Fields fields{{"n", text}};
    int member = 42;
    EXPECT_FALSE(Blob::bindBlobField(fields, "n", member, false)) << text;
    EXPECT_EQ(member, 42) << text;
  }
  Fields withNul{{"n", std::string("8\0", 2)}};
  int member = 42;
  EXPECT_FALSE(Blob::bindBlobField(withNul, "n", member, false));
}

// A record of many fields, and one of one huge value, at two sizes: sixteen times the input takes
// nowhere near 256 times the time. (The bound leaves room for cold caches and busy machines.)
TEST(BlobRead, TakesTimeLinearInTheInput) {
  const auto timed = [](const std::string& text) {
    return testing_host::leastCpuSeconds([&text] {
      const char* cursor = text.c_str();
      Fields fields;
      EXPECT_TRUE(Blob::readBlob(cursor, fields));
    });
  };
  const auto manyFields = [](int count) {
    Fields fields;
    for (int at = 0; at < count; ++at) fields["key" + std::to_string(at)] = "%";
    return written(fields);
  };
  EXPECT_LT(timed(manyFields(160'000)), 100 * timed(manyFields(10'000)));
  const std::string small(100'000, '\x01');
  const std::string large(1'600'000, '\x01');
  EXPECT_LT(timed(written({{"k", large}})), 100 * timed(written({{"k", small}})));
}

}  // namespace
