// Runs one message through a policy.
//
// What the outcome means for the message:
//   Unchanged  no action changed it: it goes on as it came
//   Changed    it goes on as it stands now
//   Disposed   an action took it out of the stream: it does not go on
//   Rejected   a rule's verdict: it is refused for good, with a text
//   TempFailed a rule's verdict: it is refused for now, with a text
//   Failed     an action failed: it stands as it came, and the caller says what becomes of it
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "gateway/engine/watched_adapter.h"
#include "gateway/policy/snapshot.h"
#include "host/core/log.h"
#include "host/delivery/message_run.h"
#include "host/delivery/reprocessing.h"
#include "host/message/message.h"
#include "host/trap/trap_recorder.h"
#include "library/platform/is_adapter.h"

namespace gateway::engine {

enum class Verdict { Unchanged, Changed, Disposed, Rejected, TempFailed, Failed };

/// Whether the message goes on to its recipients.
inline bool goesOn(Verdict verdict) {
  return verdict == Verdict::Unchanged || verdict == Verdict::Changed;
}

/// What one action did.
struct ActionReport {
  const policy::ActionSpec* spec = nullptr;  ///< never null
  std::string setting;
  std::string value;      ///< as in a policy; empty for none
  bool result = false;    ///< the action succeeded
  bool flag = false;      ///< its own flag after the run
  bool disposed = false;  ///< both: it took the message out of the stream
  std::string failure;    ///< what stopped it, when that is known beyond its log lines
  /// The message's reprocessing fields at each hand-over to the adapter, and behind the action.
  std::vector<HandOver> handOvers;
  std::string rulesLeft;
  std::vector<host::trap::RecordedTrap> traps;  ///< of a rehearsal
  std::vector<host::message::Change> changes;
  std::vector<host::core::LogLine> log;
  std::size_t bytesBefore = 0;
  std::size_t bytesAfter = 0;
};

/// A rule that matched.
struct RuleReport {
  unsigned int id = 0;
  std::string name;
  std::vector<std::string> attachments;  ///< those that made it match: file names, else types
  bool skipped = false;  ///< the message came back for scanning because of this rule
  bool reached = true;   ///< false: the message was gone, or the run had failed, before its turn
  std::vector<ActionReport> actions;  ///< those that ran
  /// An action failed, and the rule says `on_failure: accept`: the message went on as it stood
  /// before the rule. What its actions had done elsewhere by then is in `lastingEffects`.
  bool failureAccepted = false;
  std::string failure;  ///< why, when no action is to blame
};

/// The actions of \p rule that did something which outlasts the message: by name, in order.
std::vector<std::string> lastingEffects(const RuleReport& rule);
/// What failed of \p rule, in words; empty when nothing did.
std::string whatFailed(const RuleReport& rule);

struct Outcome {
  Verdict verdict = Verdict::Unchanged;
  /// Whether an action took the message out of the stream; also set when a later one then failed.
  bool disposed = false;
  /// Of Rejected and TempFailed: the rule, and its text for the sender.
  unsigned int verdictRule = 0;
  std::string verdictText;
  std::vector<RuleReport> rules;              ///< in the order of the policy
  std::string failure;                        ///< why the run failed, when no action is to blame
  host::delivery::Reprocessing reprocessing;  ///< what the message's own fields said on the way in
};

/// What a run uses besides the message and the policy. All borrowed.
struct Surroundings {
  OvIsAdapter& adapter;
  /// What the adapter wants to be told about the run, but for the final answer; null: nothing.
  host::delivery::MessageRun* adapterRun = nullptr;
  const host::core::ProcessLog* log = nullptr;  ///< null: log lines are not collected
  int logLevel = 2;                             ///< the most verbose lines to collect
  /// True keeps the mails that actions make, and keeps their traps instead of sending them. The
  /// adapter is then one that sends nothing.
  bool isRehearsal = false;
  std::string protocol = "SMTP";  ///< how the message came
  std::string hostName{};
  /// Whether reprocessing fields of the message count, and the keys of their seals (may be null).
  host::delivery::ReprocessTrust trust = host::delivery::ReprocessTrust::Nobody;
  const host::delivery::SealKeys* sealKeys = nullptr;
};

/// First takes out reprocessing fields that do not count, so that nobody else sees them; rules that
/// fields which count name are skipped, and those fields go when the message goes on.
///
/// Matches every rule against the message as it came, then runs the actions of those that match,
/// rule by rule. Each action is built from its settings string for this message and gets its own
/// flag; the message is disposed of once an action's flag and result are both true. The other
/// actions of that rule still run, later rules do not. An action that fails, throws or cannot be
/// built ends the run. Never throws; the message is not shared while it runs.
///
/// A rule's verdict comes behind its actions, ends the run, and holds whatever its actions made of
/// the message; what they filed and sent stays. When one of them failed there is no verdict.
///
/// With `on_failure: accept`, an action's failure ends its rule only. The message is then as it
/// stood before that rule: its bytes, its envelope, its values for tokens; it is not disposed of,
/// even if an earlier action of the rule had done so, the rule's verdict does not count, and later
/// rules run. What the rule's actions had filed and sent by then is not taken back. What fails
/// outside of a rule (the adapter cannot begin the message or an action, no memory to remember the
/// message) is no failure of a rule. Nor is an effect of which it is not known whether it comes
/// about (UnderWay, Uncertain, BrokenOff, an exception in the adapter): the message must not go on
/// besides.
///
/// The caller gives the adapter the final answer when the message's fate is settled: a failed run
/// is a temporary failure, and a run of the same message then finds done what this one did. So it
/// is after the verdict TempFailed.
Outcome runMessage(host::message::Message& message, const policy::Snapshot& policy,
                   const Surroundings& surroundings);

/// What the sender is told of a message that ended so, once all of that is durable.
host::delivery::FinalAnswer answerFor(Verdict verdict);

/// A template's text for one message.
struct Expansion {
  std::string text;
  unsigned int rule = 0;  ///< id of the rule whose values stand in it; 0 when none matched
  std::string failure;    ///< why there is no text; empty for success
};

/// Replaces the tokens of \p text as the first action of the first matching rule would. Nothing
/// runs, the message stays as it is but for reprocessing fields that do not count. Never throws.
Expansion expandText(const std::string& text, host::message::Message& message,
                     const policy::Snapshot& policy, const Surroundings& surroundings);

}  // namespace gateway::engine
