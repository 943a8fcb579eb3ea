#include "host/delivery/outbox.h"

#include <algorithm>
#include <ctime>

#include "host/core/text_escape.h"
#include "host/delivery/outgoing_mail.h"
#include "host/delivery/reprocess_fields.h"
#include "host/delivery/smtp_address.h"
#include "host/delivery/smtp_client.h"
#include "library/platform/ov_msg_entity.h"

namespace host::delivery {

namespace {

constexpr int kFailures = 1;
constexpr int kMsPerSecond = 1000;
constexpr std::int64_t kLeaseMarginSeconds = 60;

class TextSink final : public OvMsgSink {
 public:
  explicit TextSink(std::string& text) : text_(text) {}
  bool write(const char* data, std::size_t size) override {
    text_.append(data, size);
    return true;
  }

 private:
  std::string& text_;
};

const char* idOf(const OvMsgMailMessage& msg) {
  const char* id = msg.id();
  return id != nullptr ? id : "";
}

bool hasReprocessing(const OvMsgMailMessage& msg) {
  // The lookup changes nothing, though it is declared so.
  auto* root = const_cast<OvMsgEntity*>(msg.firstEntity());
  if (root == nullptr) return false;
  return root->header(kReprocessRules) != nullptr || root->header(kReprocessType) != nullptr ||
         root->header(kReprocessSeal) != nullptr;
}

SmtpResult resultOf(const SmtpOutcome& outcome) {
  if (outcome.isSent()) return SmtpResult::Sent;
  return outcome.isFinal() ? SmtpResult::Refused : SmtpResult::Deferred;
}

}  // namespace

std::int64_t Outbox::handOffLeaseSeconds() const {
  const int deadlineMs = settings_ != nullptr ? settings_->handoffDeadlineMs : 0;
  return deadlineMs / kMsPerSecond + kLeaseMarginSeconds;
}

AdapterError Outbox::refuse(const OvMsgMailMessage& msg, const SmtpOutcome& outcome) const {
  if (log_ != nullptr && log_->getLevel() >= kFailures) {
    log_->write(kFailures, "Message %s was not sent: %s.", core::printable(idOf(msg)).c_str(),
                outcome.text().c_str());
  }
  if (!outcome.isUncertain()) return outcome.error;
  warnOfDouble(msg, "the server may have taken it, though it counts as not sent");
  return AdapterError::Uncertain;
}

void Outbox::warnOfDouble(const OvMsgMailMessage& msg, const std::string& why) const {
  if (log_ == nullptr || log_->getLevel() < kFailures) return;
  log_->write(kFailures, "Message %s is possibly doubled: %s.", core::printable(idOf(msg)).c_str(),
              why.c_str());
}

AdapterError Outbox::check(const SpoolEntry& entry, const OvMsgMailMessage& msg) const {
  if (settings_ == nullptr) {
    return entry.kind == kPostponedKind ? AdapterError::None : AdapterError::NotAvailable;
  }
  const SmtpDestination& to = entry.isForScanning() ? settings_->scan : settings_->plain;
  SmtpOutcome refused;
  std::string_view faulty;
  refused.error =
      to.isSet() ? checkEnvelope(readEnvelope(msg), faulty) : AdapterError::NoDestination;
  return refused.isSent() ? AdapterError::None : refuse(msg, refused);
}

AdapterError Outbox::file(SpoolEntry entry, const OvMsgMailMessage& msg, const SpoolSlot& slot,
                          FiledEntry* filed) {
  const AdapterError checked = check(entry, msg);
  if (checked != AdapterError::None) return checked;
  if (!slot.earlier.empty()) {
    SpoolEntry present;
    const AdapterError found = spool_.readHead(slot.earlier, present);
    if (found != AdapterError::NotFound) return found;
    warnOfDouble(msg,
                 "an earlier attempt to file it was cut off, and it may have been sent since; "
                 "now it is in the spool as " +
                     slot.id);
  }
  entry.queuedAt = std::time(nullptr);
  return spool_.putAs(slot.id, std::move(entry), msg, filed);
}

AdapterError Outbox::handOff(const OvMsgMailMessage& msg, std::string host, int port, bool tried) {
  if (settings_ == nullptr) return AdapterError::NotAvailable;
  if (tried) warnOfDouble(msg, "an earlier attempt to hand it off was cut off");
  const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (bracketed) host = host.substr(1, host.size() - 2);
  SmtpDestination to;
  std::string fault;
  SmtpOutcome outcome;
  if (settings_->handoffTo(host, port, to, fault)) {
    outcome = send(msg, to);
    if (observer_ != nullptr) observer_->submitted(SmtpRoute::HandOff, resultOf(outcome));
  } else {
    outcome.error = AdapterError::InvalidArgument;
    outcome.reply = core::printable(fault);
  }
  return outcome.isSent() ? AdapterError::None : refuse(msg, outcome);
}

SmtpOutcome Outbox::send(const OvMsgMailMessage& msg, const SmtpDestination& to) const {
  SmtpTimeouts timeouts = settings_->timeouts;
  timeouts.totalMs = settings_->handoffDeadlineMs;
  const Envelope envelope = readEnvelope(msg);
  SmtpClient& client = SmtpClient::ofThisThread(settings_->helloName);
  const std::string id = idOf(msg);
  if (!hasReprocessing(msg)) return client.send(to, timeouts, {envelope, MessageSource(msg), id});
  // Rare, and the only case in which a message is copied: it came back for scanning before.
  std::string bytes;
  TextSink sink(bytes);
  if (msg.render(sink) != 0) {
    SmtpOutcome unreadable;
    unreadable.error = AdapterError::MessageUnreadable;
    return unreadable;
  }
  OutgoingMail mail(bytes);
  mail.withoutFields();
  return client.send(to, timeouts, {envelope, mail.source(), id});
}

}  // namespace host::delivery
