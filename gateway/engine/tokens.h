// The values that the engine puts into a message's token map.
#pragma once

#include <string>

#include "gateway/engine/match.h"
#include "gateway/policy/snapshot.h"
#include "gateway/scan/message_facts.h"
#include "host/message/message.h"
#include "library/platform/scan_token.h"
#include "library/platform/token_map.h"

namespace gateway::engine {

using Tokens = Kavi::TokenMap<Kavi::ScanToken>;

/// The values that hold for the whole run (docs/tokens.md). The subject, the header and the
/// charsets are left out: the library finds them by itself when a text asks for them.
void fillMessageTokens(Tokens& tokens, const host::message::Message& message,
                       const scan::MessageFacts& facts, const std::string& protocol,
                       const std::string& hostName);

/// The values of the rule whose actions run next.
void fillRuleTokens(Tokens& tokens, const Match& match);

/// The value of \p action as in a policy.
std::string valueOf(const policy::Snapshot::Action& action);

/// Records that \p action has succeeded.
void noteAction(Tokens& tokens, const policy::Snapshot::Action& action);

}  // namespace gateway::engine
