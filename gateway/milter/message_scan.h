// Running one message that came through the milter protocol.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "gateway/engine/engine.h"
#include "gateway/milter/answer.h"
#include "gateway/milter/answer_marks.h"
#include "gateway/milter/change_set.h"
#include "gateway/milter/collected_message.h"
#include "gateway/milter/deadline_run.h"
#include "gateway/milter/metrics.h"
#include "gateway/milter/milter_settings.h"
#include "gateway/milter/origin.h"
#include "gateway/milter/policy_source.h"
#include "gateway/milter/stray_mail.h"
#include "host/core/log.h"
#include "host/delivery/delivery_settings.h"
#include "host/delivery/delivery_state.h"
#include "host/delivery/local_adapter.h"
#include "host/delivery/seal_keys.h"

namespace gateway::milter {

/// What all messages have in common. All borrowed; everything in it is safe from any thread.
struct Gateway {
  const MilterSettings& settings;
  PolicySource& policy;
  host::core::ProcessLog& log;
  host::delivery::DeliveryState& state;
  const host::delivery::DeliverySettings& delivery;
  const host::delivery::SealKeys& keys;
  std::string temporaryFolder;  ///< for large messages
  std::string hostName;
  Metrics* metrics = nullptr;      ///< null: nothing is counted
  AnswerMarks* answers = nullptr;  ///< null: nothing is marked
  StrayMail* strays = nullptr;     ///< null: nobody is told of it
};

/// One message from its last byte to its answer. Anything that is not known to have gone well is a
/// temporary failure. One thread; not copied.
class MessageScan {
 public:
  MessageScan(const Gateway& gateway, CollectedMessage& collected, Origin origin);
  MessageScan(const MessageScan&) = delete;
  MessageScan& operator=(const MessageScan&) = delete;

  /// Runs the policy. Never throws.
  void run();

  const Answer& answer() const { return answer_; }
  /// What to tell the mail system when the answer is to go on; else empty.
  const ChangeSet& changes() const { return changes_; }
  /// The message as it stands. Only when there are changes.
  const host::message::Message& message() const { return *message_; }
  /// Whether a rule matched, so that there may be effects to settle.
  bool hasActed() const { return !outcome_.rules.empty(); }
  /// The message is not to go on after all: the mail system cannot be told. What a refusal for now
  /// already says stays.
  void failTelling();
  /// The answer is about to go out: the effects of the message are settled, and the log gets its
  /// lines. Never throws.
  void settle();
  /// Whether something may wait in the spool because of this message.
  bool mayHaveSpooled() const { return adapter_.mayHaveSpooled(); }
  /// The message that `settle` marked as being answered; nothing when it had no effects.
  const std::optional<host::store::Digest>& marked() const { return marked_; }

 private:
  void runGuarded();
  void parse();
  void refuseBeyondLimits(const std::string& what);
  void judge();
  void failFor(std::string why);
  void settleEffects();
  void log(std::chrono::steady_clock::duration took) const;

  const Gateway& gateway_;
  CollectedMessage& collected_;
  Origin origin_;
  std::chrono::steady_clock::time_point started_;
  host::delivery::LocalAdapter adapter_;
  DeadlineRun adapterRun_;
  std::unique_ptr<host::message::Message> message_;
  engine::Outcome outcome_;
  ChangeSet changes_;
  Answer answer_;
  std::string failure_;  ///< for the log
  std::size_t bytes_ = 0;
  std::optional<host::store::Digest> marked_;
};

}  // namespace gateway::milter
