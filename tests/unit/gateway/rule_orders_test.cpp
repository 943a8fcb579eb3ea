#include "gateway/policy/rule_orders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <optional>
#include <random>
#include <vector>

namespace gateway::policy {
namespace {

using testing::ElementsAre;
using Present = std::vector<std::optional<std::uint32_t>>;

constexpr std::nullopt_t kNew = std::nullopt;

TEST(RuleOrders, LeaveRoomBetweenNewRules) {
  EXPECT_THAT(assignOrders({}), ElementsAre());
  EXPECT_THAT(assignOrders({kNew, kNew, kNew}), ElementsAre(100, 200, 300));
}

TEST(RuleOrders, StayWhereNothingMoves) {
  EXPECT_THAT(assignOrders({1, 2, 3}), ElementsAre(1, 2, 3));
  EXPECT_THAT(assignOrders({7, 4294967295U}), ElementsAre(7, 4294967295U));
  EXPECT_THAT(assignOrders({7, kNew, 9, 12}), ElementsAre(7, 8, 9, 12));
}

TEST(RuleOrders, ChangeOnlyWhatMoves) {
  EXPECT_THAT(assignOrders({300, 100, 200}), ElementsAre(50, 100, 200));
  EXPECT_THAT(assignOrders({100, kNew, kNew, 400, kNew}), ElementsAre(100, 200, 300, 400, 500));
  EXPECT_THAT(assignOrders({200, 100}), ElementsAre(50, 100));
}

TEST(RuleOrders, AreGivenAnewWithoutRoom) {
  EXPECT_THAT(assignOrders({1, kNew, 2}), ElementsAre(100, 200, 300));
  EXPECT_THAT(assignOrders({kNew, 1}), ElementsAre(100, 200));
  EXPECT_THAT(assignOrders({0, kNew}), ElementsAre(100, 200)) << "0 is no place";
  EXPECT_THAT(assignOrders({4294967295U, kNew}), ElementsAre(100, 200));
}

/// The length of a longest ascending part, the slow way.
std::size_t slowLongest(const Present& orders) {
  std::vector<std::size_t> longest(orders.size(), 0);
  for (std::size_t i = 0; i < orders.size(); ++i) {
    if (!orders[i]) continue;
    longest[i] = 1;
    for (std::size_t j = 0; j < i; ++j) {
      if (orders[j] && *orders[j] < *orders[i]) longest[i] = std::max(longest[i], longest[j] + 1);
    }
  }
  return longest.empty() ? 0 : *std::max_element(longest.begin(), longest.end());
}

TEST(RuleOrders, AscendAndKeepAsManyAsTheyCan) {
  std::mt19937 random(20);  // NOLINT(cert-msc51-cpp): the same cases every time
  for (int round = 0; round < 2000; ++round) {
    std::vector<std::uint32_t> known(random() % 12);
    std::iota(known.begin(), known.end(), 1U);
    for (std::uint32_t& order : known) order *= random() % 2 == 0 ? 50 : 1000;
    std::sort(known.begin(), known.end());
    known.erase(std::unique(known.begin(), known.end()), known.end());
    std::shuffle(known.begin(), known.end(), random);
    Present present(known.begin(), known.end());
    for (std::size_t i = 0; i < present.size(); ++i) {
      if (random() % 4 == 0) present[i].reset();
    }
    const std::vector<std::uint32_t> assigned = assignOrders(present);
    ASSERT_EQ(assigned.size(), present.size());
    std::size_t kept = 0;
    for (std::size_t i = 0; i < assigned.size(); ++i) {
      ASSERT_GT(assigned[i], i == 0 ? 0U : assigned[i - 1]);
      if (present[i] == assigned[i]) ++kept;
    }
    const std::vector<bool> ascending = longestAscending(present);
    ASSERT_EQ(std::count(ascending.begin(), ascending.end(), true), slowLongest(present));
    ASSERT_GE(kept, slowLongest(present)) << "there is room between all of them";
  }
}

}  // namespace
}  // namespace gateway::policy
