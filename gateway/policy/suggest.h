// "Did you mean …?" for mistyped words.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace gateway::policy {

/// The remedy for the unknown \p word, as a text in brackets: the known word that it comes close
/// to, or all \p known words.
std::string remedyFor(std::string_view word, const std::vector<std::string_view>& known);

/// The one of \p known that \p word comes close to; empty when none does.
std::string_view closestTo(std::string_view word, const std::vector<std::string_view>& known);

/// \p word in quotes, cut when long, with control bytes replaced: fit for a one-line message.
std::string inQuotes(std::string_view word);

}  // namespace gateway::policy
