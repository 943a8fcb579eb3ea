#include "host/trap/oid.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using host::trap::parseOid;
using Arcs = std::vector<unsigned long>;

TEST(Oid, IsItsArcs) {
  EXPECT_EQ(parseOid("1.3.6.1.4.1.99999.141"), (Arcs{1, 3, 6, 1, 4, 1, 99999, 141}));
  EXPECT_EQ(parseOid(".1.3"), (Arcs{1, 3}));
  EXPECT_EQ(parseOid("0.39"), (Arcs{0, 39}));
  EXPECT_EQ(parseOid("2.4294967295"), (Arcs{2, 4294967295ul}));
}

TEST(Oid, IsNothingElse) {
  for (const char* text : {"", ".", "1", "1.", "..1.3", "1..3", "1.3.", "a.b", "1.3x", "1.-3",
                           "+1.3", "1 .3", "3.1", "1.40", "1.3.4294967296"}) {
    EXPECT_FALSE(parseOid(text)) << text;
  }
}

TEST(Oid, HasAnEnd) {
  std::string text = "1.3";
  for (int arc = 2; arc < 120; ++arc) text += ".1";
  EXPECT_TRUE(parseOid(text));
  EXPECT_FALSE(parseOid(text + ".1"));
}

}  // namespace
