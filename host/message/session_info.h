// The handle to a message's envelope.
#pragma once

#include <string>

#include "host/message/message.h"
#include "library/platform/ov_msg_session_info.h"

namespace host::message {

/// Works on the envelope of its message at once. Released before the message.
class SessionInfo final : public OvMsgMailSessionInfo {
 public:
  explicit SessionInfo(Message& message) : message_(message) {}
  ~SessionInfo() override = default;

  int setSender(const char* address) override;
  const OvMsgAddress* sender() const override;
  int recipientCount() const override;
  const char* recipientAt(int index) const override;
  int insertRecipient(int index, const char* address) override;

 private:
  class Sender final : public OvMsgAddress {
   public:
    explicit Sender(const Message& message) : message_(message) {}
    const char* address() const override;
    const char* displayName() const override;

   private:
    const Message& message_;
  };

  Message& message_;
  Sender sender_{message_};
};

}  // namespace host::message
