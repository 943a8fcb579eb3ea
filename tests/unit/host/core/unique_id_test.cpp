#include "host/core/unique_id.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace {

TEST(UniqueId, HasItsFormAndSortsByAge) {
  const std::string first = host::core::makeUniqueId();
  ASSERT_EQ(first.size(), 32u);
  EXPECT_EQ(first.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz"), std::string::npos);
  std::string later = host::core::makeUniqueId();
  while (later.substr(0, 14) == first.substr(0, 14)) later = host::core::makeUniqueId();
  EXPECT_LT(first, later);
}

TEST(UniqueId, IsNeverGivenTwice) {
  constexpr int kEach = 5000;
  std::vector<std::vector<std::string>> ids(4);
  std::vector<std::thread> threads;
  for (auto& own : ids) {
    threads.emplace_back([&own] {
      for (int at = 0; at < kEach; ++at) own.push_back(host::core::makeUniqueId());
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<std::string> all;
  for (const auto& own : ids) all.insert(own.begin(), own.end());
  EXPECT_EQ(all.size(), ids.size() * kEach);
}

}  // namespace
