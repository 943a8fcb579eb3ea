#include "host/delivery/message_effects.h"

#include <algorithm>
#include <ctime>
#include <new>
#include <utility>
#include <vector>

#include "host/core/unique_id.h"
#include "host/delivery/digest.h"

namespace host::delivery {

namespace {

constexpr std::string_view kMessageDomain = "kavi message 1";
constexpr std::string_view kEffectDomain = "kavi effect 1";

std::string_view bytesOf(const store::Digest& digest) {
  return {reinterpret_cast<const char*>(digest.data()), digest.size()};
}

// The envelope as bytes that no other envelope has, whatever the order of its recipients.
std::string envelopeText(const Envelope& envelope) {
  std::vector<std::string_view> recipients(envelope.recipients.begin(), envelope.recipients.end());
  std::sort(recipients.begin(), recipients.end());
  std::string text(kMessageDomain);
  text += envelope.sender ? '+' : '-';
  appendDelimited(text, envelope.sender.value_or(std::string()));
  text += std::to_string(recipients.size());
  for (const std::string_view recipient : recipients) appendDelimited(text, recipient);
  return text;
}

}  // namespace

std::int64_t MessageEffects::systemClock() { return std::time(nullptr); }

MessageEffects::MessageEffects(store::EffectLedger* ledger, Clock clock)
    : ledger_(ledger), clock_(clock) {}

AdapterError MessageEffects::note(const store::StoreStatus& status) {
  if (!status.ok()) {
    lastFault_ = status.text.empty() ? store::storeErrorText(status.error) : status.text;
  }
  return adapterErrorOf(status.error);
}

AdapterError MessageEffects::beginMessage(const OvMsgMailMessage& msg, std::string_view received) {
  return guardedOutcome([&] {
    Envelope envelope = readEnvelope(msg);
    std::string owner = core::makeUniqueId();
    envelope_ = std::move(envelope);
    owner_.swap(owner);
    received_ = received;
    message_.reset();
    action_.clear();
    lastFault_.clear();
    return AdapterError::None;
  });
}

AdapterError MessageEffects::beginAction(unsigned int ruleId, unsigned int position,
                                         std::string_view setting) {
  return guardedOutcome([&] {
    if (owner_.empty()) return AdapterError::InvalidArgument;
    std::string action = std::to_string(ruleId) + "/" + std::to_string(position) + "/";
    appendDelimited(action, setting);
    action_.swap(action);
    calls_ = 0;
    lastFault_.clear();
    return AdapterError::None;
  });
}

AdapterError MessageEffects::finalAnswer(FinalAnswer answer) {
  return guardedOutcome([&] {
    const std::optional<store::Digest> message = leaveUnanswered();
    if (!message || answer == FinalAnswer::TemporaryFailure) return AdapterError::None;
    return note(ledger_->forgetMessages({*message}));
  });
}

std::optional<store::Digest> MessageEffects::leaveUnanswered() {
  action_.clear();
  // Without an effect there is no digest, and nothing was written.
  return std::exchange(message_, std::nullopt);
}

const store::Digest& MessageEffects::messageDigest() {
  if (!message_) {
    Sha256 sum;
    sum.update(envelopeText(envelope_));
    sum.update(received_);
    message_ = sum.finish();
  }
  return *message_;
}

store::EffectClaim MessageEffects::claim(std::int64_t leaseSeconds,
                                         const std::string& intended) const {
  return {owner_, clock_(), leaseSeconds, intended};
}

AdapterError MessageEffects::begin(std::string_view operation, std::int64_t leaseSeconds,
                                   const std::string& intended, Ticket& ticket) {
  return guardedOutcome([&] {
    ticket = {};
    if (action_.empty()) return AdapterError::None;
    if (ledger_ == nullptr) return AdapterError::IndexUnavailable;
    std::string effect(kEffectDomain);
    effect += bytesOf(messageDigest());
    effect += action_;
    appendDelimited(effect, operation);
    effect += std::to_string(calls_++);
    Sha256 sum;
    sum.update(effect);
    ticket.key = {messageDigest(), sum.finish()};
    ticket.tracked = true;
    return open(leaseSeconds, intended, ticket);
  });
}

AdapterError MessageEffects::open(std::int64_t leaseSeconds, const std::string& intended,
                                  Ticket& ticket) {
  const AdapterError outcome =
      note(ledger_->beginEffect(ticket.key, claim(leaseSeconds, intended), ticket.answer));
  if (outcome != AdapterError::None) return outcome;
  return ticket.answer.state == store::EffectState::UnderWay ? AdapterError::UnderWay
                                                             : AdapterError::None;
}

AdapterError MessageEffects::beginAnew(std::int64_t leaseSeconds, const std::string& intended,
                                       Ticket& ticket) {
  return guardedOutcome([&] {
    const AdapterError outcome = note(ledger_->reopenEffect(ticket.key, ticket.answer.result));
    if (outcome != AdapterError::None) return outcome;
    return open(leaseSeconds, intended, ticket);
  });
}

std::optional<store::MessageIndex::Finishes> MessageEffects::finishes(
    const Ticket& ticket, const std::string& result) const {
  if (!ticket.tracked) return std::nullopt;
  return store::MessageIndex::Finishes{ticket.key, owner_, result};
}

AdapterError MessageEffects::finish(const Ticket& ticket, const std::string& result) {
  if (!ticket.tracked) return AdapterError::None;
  return guardedOutcome([&] { return note(ledger_->finishEffect(ticket.key, owner_, result)); });
}

void MessageEffects::abandon(const Ticket& ticket) {
  if (!ticket.tracked) return;
  // The failure that led here is the one to report.
  guardedOutcome([&] { return adapterErrorOf(ledger_->abandonEffect(ticket.key, owner_).error); });
}

}  // namespace host::delivery
