// What a rule says besides its condition and its actions: `on_failure` and `verdict`.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "gateway/policy/condition.h"
#include "gateway/policy/node.h"
#include "gateway/policy/rows.h"

namespace gateway::policy {

/// The longest text of a verdict: with its codes, a queue id, and what servers on the way put in
/// front of it, it stays within the 512 bytes of a reply line (RFC 5321 section 4.5.3.1.5).
inline constexpr std::size_t kMaxVerdictText = 400;

/// Reads the value of the key `on_failure`. \return false with the reason and remedy in \p fault.
bool readOnFailure(const Node& value, OnFailure& onFailure, const FaultSink& fault);
/// The same for the key `verdict`.
bool readVerdict(const Node& value, RuleVerdict& verdict, const FaultSink& fault);

/// What keeps \p text from being told to a sender, with the remedy; empty when nothing. Whatever
/// passes is one line of printable ASCII and stands in a reply as it is: nothing of a message gets
/// into it.
std::string verdictTextFault(std::string_view text);
/// The same for a verdict of any kind.
std::string verdictFault(const RuleVerdict& verdict);

/// As in a policy.
std::string_view wordOf(OnFailure onFailure);
/// As in a policy; empty for none.
std::string_view wordOf(RuleVerdict::Kind kind);

}  // namespace gateway::policy
