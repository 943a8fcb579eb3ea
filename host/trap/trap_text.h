// The text of a trap, as long as one packet carries it.
#pragma once

#include <cstddef>
#include <string>

namespace host::trap {

/// Bytes of text that a trap carries: with its headers it fits an Ethernet frame, so that no router
/// takes it apart.
inline constexpr std::size_t kMaxTrapText = 1400;

/// \p text, or its beginning with " [cut]" behind it when it is longer than kMaxTrapText bytes:
/// then as much as leaves room for the notice, never a part of a UTF-8 character.
std::string fittingTrapText(const std::string& text);

}  // namespace host::trap
