#include "host/trap/oid.h"

#include <charconv>
#include <cstdint>

namespace host::trap {

namespace {

// SNMP allows 128 (RFC 3416 section 4.1); what is appended for a trap stays within.
constexpr std::size_t kMaxArcs = 120;

}  // namespace

std::optional<std::vector<unsigned long>> parseOid(std::string_view text) {
  if (text.starts_with('.')) text.remove_prefix(1);
  std::vector<unsigned long> arcs;
  const char* const end = text.data() + text.size();
  for (const char* at = text.data();; ++at) {
    std::uint32_t arc = 0;
    const auto [next, failure] = std::from_chars(at, end, arc);
    if (failure != std::errc() || arcs.size() == kMaxArcs) return std::nullopt;
    arcs.push_back(arc);
    if (next == end) break;
    if (*next != '.') return std::nullopt;
    at = next;
  }
  if (arcs.size() < 2 || arcs[0] > 2 || (arcs[0] < 2 && arcs[1] > 39)) return std::nullopt;
  return arcs;
}

}  // namespace host::trap
