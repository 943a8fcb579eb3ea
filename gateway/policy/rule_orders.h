// Where rules stand, in numbers.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace gateway::policy {

/// For every number of \p orders, those that are there, whether it belongs to a longest ascending
/// part of them. Whatever is not there does not. Takes n log n.
std::vector<bool> longestAscending(const std::vector<std::optional<std::uint32_t>>& orders);

/// Ascending numbers for rules that are to stand in this sequence, few of them other than \p
/// present: a rule that is new or moved gets a number between those of its neighbours. Where there
/// is no room, all are numbered anew.
std::vector<std::uint32_t> assignOrders(const std::vector<std::optional<std::uint32_t>>& present);

}  // namespace gateway::policy
