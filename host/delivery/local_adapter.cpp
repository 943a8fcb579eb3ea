#include "host/delivery/local_adapter.h"

#include <array>
#include <cstdint>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "host/core/guard.h"
#include "host/core/json_object.h"
#include "host/delivery/adapter_guard.h"
#include "host/delivery/reprocessing.h"
#include "library/platform/ov_msg_mail_message.h"

namespace host::delivery {

namespace {

// The present time in UTC: "2024-05-06T07:08:09Z".
std::string utcNow() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  std::array<char, 32> text{};
  ::gmtime_r(&now, &parts);
  return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::string deletionLine(const OvMsgMailMessage& msg) {
  core::JsonObject line;
  line.text("time", utcNow())
      .text("decision", "delete")
      .textOrNull("message_id", msg.id())
      .number("bytes", static_cast<std::int64_t>(msg.renderedSize()))
      .object("envelope", toJson(readEnvelope(msg)));
  return line.line();
}

}  // namespace

int LocalAdapter::deleteMessage(unsigned int& error, OvMsgMailMessage* msg) {
  if (msg == nullptr) return finish(error, AdapterError::InvalidArgument);
  return finish(error, effects_.once("delete", kShortLeaseSeconds,
                                     [&] { return state_.recordDecision(deletionLine(*msg)); }));
}

int LocalAdapter::postponeMessage(unsigned int& error, OvMsgMailMessage* msg,
                                  unsigned char fromHour, unsigned char fromMinute,
                                  unsigned char toHour, unsigned char toMinute) {
  if (msg == nullptr) return finish(error, AdapterError::InvalidArgument);
  return spool(error, kPostponedKind, [&](const SpoolSlot& slot) {
    SpoolEntry entry;
    entry.kind = kPostponedKind;
    entry.window = {fromHour, fromMinute, toHour, toMinute};
    entry.passes = passes_;
    std::vector<unsigned int> rules;
    if (parseRuleIds(tokenOrEmpty(Kavi::ScanToken::RuleId), rules)) entry.rule = rules.front();
    return holdBack(std::move(entry), *msg, slot);
  });
}

// The file comes first and its row after it, under the hold: nobody sends it in between.
AdapterError LocalAdapter::holdBack(SpoolEntry entry, OvMsgMailMessage& msg,
                                    const SpoolSlot& slot) {
  Spool& spool = state_.spool();
  FiledEntry filed;
  const AdapterError outcome = outbox_.file(std::move(entry), msg, slot, &filed);
  if (outcome != AdapterError::None) return outcome;
  const bool isNew = filed.hold.isOpen();
  const std::string& id = isNew ? slot.id : slot.earlier;
  // What is being sent, or was, gets no row any more.
  if (!isNew && spool.hold(id, filed.hold) != AdapterError::None) return AdapterError::None;
  const AdapterError listed = guardedOutcome([&] {
    if (!isNew && spool.readHead(id, filed.entry) != AdapterError::None) return AdapterError::None;
    bool added = false;
    return effects_.note(state_.spoolIndex()->addMissing(id, filed.entry, msg, added));
  });
  if (listed == AdapterError::None) return listed;
  // Its sender will send it again, so it must not go out from here. One that stays will: that is
  // as good as success, and the next start adds its row.
  if (!isNew) return AdapterError::None;
  core::guardedVoid([&] { static_cast<void>(state_.spoolIndex()->remove(id)); });
  // A removal that reports failure may have happened all the same: only what is seen to lie there
  // whole counts as kept. In doubt the sender keeps the message; twice is better than not at all.
  if (spool.remove(id) == AdapterError::None) return listed;
  SpoolEntry kept;
  return spool.readHead(id, kept) == AdapterError::None ? AdapterError::None
                                                        : AdapterError::Uncertain;
}

int LocalAdapter::handoffMessage(unsigned int& error, OvMsgMailMessage* msg, const char* host,
                                 int port) {
  if (msg == nullptr || host == nullptr) return finish(error, AdapterError::InvalidArgument);
  return finish(error, effects_.once("handoff", outbox_.handOffLeaseSeconds(),
                                     [&](const MessageEffects::Ticket& ticket) {
                                       return outbox_.handOff(*msg, host, port,
                                                              ticket.isTakenOver());
                                     }));
}

int LocalAdapter::resendMessage(unsigned int& error, OvMsgMailMessage* msg, int /*flag*/) {
  return queue(error, msg, kResentKind);
}

int LocalAdapter::deliverMessage(unsigned int& error, OvMsgMailMessage* msg) {
  return queue(error, msg, kDeliveredKind);
}

int LocalAdapter::queue(unsigned int& error, const OvMsgMailMessage* msg, const char* kind) {
  if (msg == nullptr) return finish(error, AdapterError::InvalidArgument);
  return spool(error, kind, [&](const SpoolSlot& slot) {
    SpoolEntry entry;
    entry.kind = kind;
    entry.window = kAnyTime;
    entry.passes = passes_;
    return outbox_.file(std::move(entry), *msg, slot);
  });
}

// The id is chosen before the effect is begun, so that a retry can look for what was filed.
template <class Body>
int LocalAdapter::spool(unsigned int& error, const char* operation, Body&& body) {
  return finish(error, guardedOutcome([&] {
                  SpoolSlot slot{Spool::newId(), {}};
                  return effects_.once(
                      operation, kShortLeaseSeconds,
                      [&](const MessageEffects::Ticket& ticket) {
                        if (ticket.isTakenOver()) slot.earlier = ticket.answer.result;
                        mayHaveSpooled_ = true;
                        return body(slot);
                      },
                      slot.id);
                }));
}

}  // namespace host::delivery
