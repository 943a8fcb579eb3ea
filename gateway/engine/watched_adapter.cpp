#include "gateway/engine/watched_adapter.h"

#include <utility>

#include "host/delivery/reprocess_fields.h"
#include "host/message/message.h"
#include "library/platform/msgu.h"

namespace gateway::engine {

template <class Call>
int WatchedAdapter::watch(const char* operation, unsigned int& error, OvMsgMailMessage* msg,
                          Call call) {
  HandOver seen;
  seen.operation = operation;
  if (OvMsgEntity* root = msgu::getRootEntity(msg); root != nullptr) {
    msgu::getHeader(root, host::delivery::kReprocessRules, seen.rules);
    msgu::getHeader(root, host::delivery::kReprocessType, seen.type);
  }
  if (const auto* mail = dynamic_cast<const host::message::Message*>(msg); mail != nullptr) {
    const host::message::Envelope envelope = mail->envelope();
    seen.sender = envelope.sender.value_or("");
    seen.recipients = envelope.recipients;
    if (scanned_ != nullptr && msg != scanned_) {
      seen.mail = OwnMail{seen.sender, seen.recipients, mail->toString()};
    }
  }
  // Before the call: what happened there must be in the list, whatever memory there is.
  handOvers_.push_back(std::move(seen));
  const int result = call();
  handOvers_.back().error = error;
  return result;
}

int WatchedAdapter::deleteMessage(unsigned int& error, OvMsgMailMessage* msg) {
  return watch("delete", error, msg, [&] { return adapter_.deleteMessage(error, msg); });
}

int WatchedAdapter::postponeMessage(unsigned int& error, OvMsgMailMessage* msg,
                                    unsigned char fromHour, unsigned char fromMinute,
                                    unsigned char toHour, unsigned char toMinute) {
  return watch("postpone", error, msg, [&] {
    return adapter_.postponeMessage(error, msg, fromHour, fromMinute, toHour, toMinute);
  });
}

int WatchedAdapter::handoffMessage(unsigned int& error, OvMsgMailMessage* msg, const char* host,
                                   int port) {
  return watch("handoff", error, msg,
               [&] { return adapter_.handoffMessage(error, msg, host, port); });
}

int WatchedAdapter::quarantineMessage(unsigned int& error, OvMsgMailMessage* msg,
                                      const char* reserved, const char* directory,
                                      char (&path)[kQuarantinePathSize]) {
  const int result = watch("quarantine", error, msg, [&] {
    return adapter_.quarantineMessage(error, msg, reserved, directory, path);
  });
  if (result == 0) handOvers_.back().place = path;
  return result;
}

int WatchedAdapter::archiveMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                                   const char* directory,
                                   const char (&area)[kArchiveAreaNameSize]) {
  const int result = watch("archive", error, msg, [&] {
    return adapter_.archiveMessage(error, msg, reserved, directory, area);
  });
  // The operation itself does not say where.
  if (result == 0 && run_ != nullptr) handOvers_.back().place = run_->lastPlace();
  return result;
}

int WatchedAdapter::resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) {
  return watch("resend", error, msg, [&] { return adapter_.resendMessage(error, msg, flag); });
}

int WatchedAdapter::deliverMessage(unsigned int& error, OvMsgMailMessage* msg) {
  return watch("deliver", error, msg, [&] { return adapter_.deliverMessage(error, msg); });
}

}  // namespace gateway::engine
