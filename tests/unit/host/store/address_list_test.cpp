#include "host/store/address_list.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using host::store::packAddresses;
using host::store::unpackAddresses;

TEST(AddressList, GivesBackWhatWasPacked) {
  const std::vector<std::string> lists[] = {{},
                                            {""},
                                            {"", ""},
                                            {"a@example.org"},
                                            {"3:abc,", ",", ":"},
                                            {std::string("a\0b", 3), "\xFF"}};
  for (const auto& list : lists) {
    std::vector<std::string> read{"before"};
    EXPECT_TRUE(unpackAddresses(packAddresses(list), read));
    EXPECT_EQ(read, list);
  }
}

TEST(AddressList, RefusesEverythingElse) {
  for (const char* text : {"x", "1", "1:", "1:a", "1:ab,", "2:a,", ":,", "-1:a,", " 1:a,", "1 :a,",
                           "99999999999999999999:a,", "1:a,x", "18446744073709551615:a,"}) {
    std::vector<std::string> read{"before"};
    EXPECT_FALSE(unpackAddresses(text, read)) << text;
    EXPECT_EQ(read, std::vector<std::string>{"before"}) << text;
  }
}

}  // namespace
