// The effects of one message, each of which happens once though the sender tries again.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "host/delivery/adapter_error.h"
#include "host/delivery/adapter_guard.h"
#include "host/delivery/envelope.h"
#include "host/delivery/message_run.h"
#include "host/store/effect_ledger.h"
#include "host/store/message_index.h"

namespace host::delivery {

/// For the effects that are a matter of our own disk: how long another attempt must have been at
/// it before this one takes over.
inline constexpr std::int64_t kShortLeaseSeconds = 120;

/// Keeps the ledger for one message. An effect is one call of an action on the adapter; its key is
/// the SHA-256 of the message (sender, sorted recipients, bytes, all as received), the action
/// (rule id, position, setting), the operation, and how many calls the action made before.
/// Before `beginAction` nothing is tracked: every effect happens. One thread at a time.
class KAVI_API MessageEffects {
 public:
  using Clock = std::int64_t (*)();  ///< seconds since 1970

  /// \param ledger  must outlive this object; without one nothing can be tracked, and what should
  ///   be fails with IndexUnavailable.
  explicit MessageEffects(store::EffectLedger* ledger, Clock clock = systemClock);

  /// As in MessageRun.
  AdapterError beginMessage(const OvMsgMailMessage& msg, std::string_view received);
  AdapterError beginAction(unsigned int ruleId, unsigned int position, std::string_view setting);
  AdapterError finalAnswer(FinalAnswer answer);

  /// Ends the work on the message without an answer, which comes later (DeliveryState).
  /// \return the message as the ledger knows it; nothing when there is nothing to forget.
  std::optional<store::Digest> leaveUnanswered();

  /// One effect's place in the ledger.
  struct Ticket {
    bool tracked = false;
    store::EffectKey key;
    store::EffectAnswer answer;

    bool isDone() const { return tracked && answer.state == store::EffectState::Finished; }
    bool isTakenOver() const { return tracked && answer.state == store::EffectState::TakenOver; }
  };

  /// Opens the next effect of the present action.
  /// \param intended  where its result is going to be; may be empty
  /// \return UnderWay when another attempt is at it.
  AdapterError begin(std::string_view operation, std::int64_t leaseSeconds,
                     const std::string& intended, Ticket& ticket);
  /// Opens a finished effect again because its result is gone.
  AdapterError beginAnew(std::int64_t leaseSeconds, const std::string& intended, Ticket& ticket);
  /// The effect happened.
  AdapterError finish(const Ticket& ticket, const std::string& result);
  /// The effect did not happen. What cannot be written down now is settled by the lease.
  void abandon(const Ticket& ticket);

  /// Brings an effect about by \p body, which answers an AdapterError, unless it happened before.
  /// An effect that cannot be written down as done has happened all the same: success. One that is
  /// uncertain and has a place where it can be looked for is left to whoever takes it over.
  /// \param body  may take the ticket: one that is taken over may have happened, too, and its
  /// answer
  ///   says what the earlier attempt intended.
  /// \param intended  as in `begin`
  template <class Body>
  AdapterError once(std::string_view operation, std::int64_t leaseSeconds, Body&& body,
                    const std::string& intended = {}) {
    Ticket ticket;
    AdapterError outcome = begin(operation, leaseSeconds, intended, ticket);
    if (outcome != AdapterError::None || ticket.isDone()) return outcome;
    outcome = guardedOutcome([&] {
      if constexpr (std::is_invocable_v<Body&, const Ticket&>) {
        return body(ticket);
      } else {
        return body();
      }
    });
    if (outcome == AdapterError::None) {
      finish(ticket, {});
    } else if (outcome != AdapterError::Uncertain || intended.empty()) {
      abandon(ticket);
    }
    return outcome;
  }

  /// What a row of the index needs to finish the effect with it; nothing when it is not tracked.
  std::optional<store::MessageIndex::Finishes> finishes(const Ticket& ticket,
                                                        const std::string& result) const;

  /// Keeps the words of a failed status. \return its code.
  AdapterError note(const store::StoreStatus& status);
  const std::string& lastFault() const { return lastFault_; }
  std::int64_t now() const { return clock_(); }

  static std::int64_t systemClock();

 private:
  const store::Digest& messageDigest();
  store::EffectClaim claim(std::int64_t leaseSeconds, const std::string& intended) const;
  AdapterError open(std::int64_t leaseSeconds, const std::string& intended, Ticket& ticket);

  store::EffectLedger* ledger_;
  Clock clock_;
  std::string owner_;
  std::string_view received_;
  Envelope envelope_;
  std::optional<store::Digest> message_;  ///< made with the first effect: most mail has none
  std::string action_;  ///< what tells the present action from others; empty: nothing is tracked
  unsigned int calls_ = 0;
  std::string lastFault_;
};

}  // namespace host::delivery
