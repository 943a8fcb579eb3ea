#include "host/delivery/envelope.h"

#include <memory>
#include <new>

#include "host/message/message.h"
#include "library/platform/ov_msg_functions.h"
#include "library/platform/ov_msg_mail_message.h"
#include "library/platform/ov_msg_session_info.h"

namespace host::delivery {

namespace {

struct SessionDeleter {
  void operator()(OvMsgMailSessionInfo* session) const { OvMsg_DeleteSessionInfo(session); }
};

}  // namespace

Envelope readEnvelope(const OvMsgMailMessage& msg) {
  Envelope envelope;
  const std::unique_ptr<OvMsgMailSessionInfo, SessionDeleter> session(msg.sessionInfo());
  if (session == nullptr) {
    // None, or no memory for it; a message must not lose its recipients over that.
    const auto* message = dynamic_cast<const message::Message*>(&msg);
    if (message != nullptr && message->hasEnvelope()) throw std::bad_alloc();
    return envelope;
  }
  if (const OvMsgAddress* sender = session->sender()) envelope.sender = sender->address();
  const int count = session->recipientCount();
  for (int index = 0; index < count; ++index) {
    if (const char* recipient = session->recipientAt(index)) {
      envelope.recipients.emplace_back(recipient);
    }
  }
  return envelope;
}

core::JsonObject toJson(const Envelope& envelope) {
  core::JsonObject object;
  object.textOrNull("sender", envelope.sender ? envelope.sender->c_str() : nullptr);
  object.texts("recipients", envelope.recipients);
  return object;
}

}  // namespace host::delivery
