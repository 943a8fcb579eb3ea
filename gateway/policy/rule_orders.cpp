#include "gateway/policy/rule_orders.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace gateway::policy {
namespace {

using Orders = std::vector<std::uint32_t>;

constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();
constexpr std::uint64_t kHighest = std::numeric_limits<std::uint32_t>::max();
/// What lies between rules that have been numbered anew: room for others.
constexpr std::uint64_t kStride = 100;

Orders numberedAnew(std::size_t count) {
  const std::uint64_t stride = std::clamp<std::uint64_t>(kHighest / (count + 1), 1, kStride);
  Orders orders(count);
  for (std::size_t i = 0; i < count; ++i) {
    orders[i] = static_cast<std::uint32_t>(stride * (i + 1));
  }
  return orders;
}

/// Numbers the places \p from to \p to between \p low and \p high. \return false without room
bool fill(Orders& orders, std::size_t from, std::size_t to, std::uint64_t low, std::uint64_t high) {
  const std::uint64_t places = to - from;
  if (high - low <= places) return false;
  const std::uint64_t step = std::min(kStride, (high - low) / (places + 1));
  for (std::size_t i = from; i < to; ++i) {
    low += step;
    orders[i] = static_cast<std::uint32_t>(low);
  }
  return true;
}

}  // namespace

std::vector<bool> longestAscending(const std::vector<std::optional<std::uint32_t>>& orders) {
  std::vector<std::size_t> ends;  // of the parts of each length, the one with the lowest end
  std::vector<std::size_t> before(orders.size(), kNone);
  for (std::size_t i = 0; i < orders.size(); ++i) {
    if (!orders[i]) continue;
    const auto place = std::lower_bound(
        ends.begin(), ends.end(), *orders[i],
        [&](std::size_t end, std::uint32_t order) { return *orders[end] < order; });
    if (place != ends.begin()) before[i] = *(place - 1);
    if (place == ends.end()) {
      ends.push_back(i);
    } else {
      *place = i;
    }
  }
  std::vector<bool> belongs(orders.size(), false);
  for (std::size_t i = ends.empty() ? kNone : ends.back(); i != kNone; i = before[i]) {
    belongs[i] = true;
  }
  return belongs;
}

std::vector<std::uint32_t> assignOrders(const std::vector<std::optional<std::uint32_t>>& present) {
  const std::vector<bool> stays = longestAscending(present);
  Orders orders(present.size());
  std::size_t first = 0;  // of the places that have no number yet
  std::uint64_t low = 0;
  for (std::size_t i = 0; i < present.size(); ++i) {
    if (!stays[i]) continue;
    if (!fill(orders, first, i, low, *present[i])) return numberedAnew(present.size());
    orders[i] = *present[i];
    low = *present[i];
    first = i + 1;
  }
  if (!fill(orders, first, present.size(), low, kHighest + 1)) return numberedAnew(present.size());
  return orders;
}

}  // namespace gateway::policy
