// The lines that the log gets about a message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "gateway/engine/engine.h"
#include "gateway/milter/answer.h"
#include "gateway/milter/change_set.h"
#include "gateway/milter/collected_message.h"
#include "gateway/milter/origin.h"

namespace gateway::milter {

/// All that a line may hold. Borrows everything.
struct MessageRecord {
  const Origin& origin;
  const CollectedMessage& collected;
  const engine::Outcome& outcome;
  const ChangeSet& changes;
  const Answer& answer;
  const std::string& failure;  ///< why it was refused; empty otherwise
  std::string id{};            ///< the gateway's own identifier; empty when it never got one
  std::size_t bytes = 0;
  std::int64_t milliseconds = 0;
};

/// "message queue=… verdict=… …": words KEY=VALUE. A value with anything but plain characters
/// stands in quotes, its quotes and backslashes behind a backslash; control bytes are escaped.
std::string messageLine(const MessageRecord& record);
/// The same for each rule whose failure was accepted: what failed and why, and the actions of the
/// rule whose effects stay: "accepted queue=… rule=15 failure="action stamp of rule 15"
/// stays=archive".
std::vector<std::string> acceptedLines(const MessageRecord& record);
/// A line about an action, and the level that it is for.
struct ActionLine {
  int level;  ///< 1 for a failure that no other line gives the reason of, else 2
  std::string text;
};
/// The same for each action that ran: "action queue=… rule=15 action=stamp result=ok …".
std::vector<ActionLine> actionLines(const MessageRecord& record);

}  // namespace gateway::milter
