#include "host/delivery/envelope.h"

#include <memory>
#include <nlohmann/json.hpp>

#include "host/core/text_escape.h"
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
  if (session == nullptr) return envelope;
  if (const OvMsgAddress* sender = session->sender()) envelope.sender = sender->address();
  const int count = session->recipientCount();
  for (int index = 0; index < count; ++index) {
    if (const char* recipient = session->recipientAt(index)) {
      envelope.recipients.emplace_back(recipient);
    }
  }
  return envelope;
}

nlohmann::ordered_json toJson(const Envelope& envelope) {
  nlohmann::ordered_json recipients = nlohmann::ordered_json::array();
  for (const std::string& recipient : envelope.recipients) {
    recipients.push_back(core::printable(recipient));
  }
  nlohmann::ordered_json object;
  object["sender"] = nullptr;
  if (envelope.sender) object["sender"] = core::printable(*envelope.sender);
  object["recipients"] = std::move(recipients);
  return object;
}

}  // namespace host::delivery
