// Object identifiers.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace host::trap {

/// The arcs of an OID in dotted decimals ("1.3.6.1", one leading dot allowed).
/// \return nothing for a text that is none: fewer than 2 arcs or more than 120, an arc above
///   4294967295, a first arc above 2, or a second above 39 where the first allows no more.
std::optional<std::vector<unsigned long>> parseOid(std::string_view text);

}  // namespace host::trap
