// A handle to the envelope of a fake message.
#pragma once

#include <optional>
#include <string>

#include "library/platform/ov_msg_session_info.h"

namespace fakes {

struct MessageFacts;

/// Works on the facts of its message at once, as a real one does.
class Session : public OvMsgMailSessionInfo {
 public:
  explicit Session(MessageFacts& facts);

  int setSender(const char* address) override;
  const OvMsgAddress* sender() const override;
  int recipientCount() const override;
  const char* recipientAt(int index) const override;
  int insertRecipient(int index, const char* address) override;

 private:
  class Sender : public OvMsgAddress {
   public:
    explicit Sender(MessageFacts& facts) : facts_(facts) {}
    const char* address() const override;
    const char* displayName() const override;

   private:
    MessageFacts& facts_;
  };

  MessageFacts& facts_;
  Sender sender_;
};

}  // namespace fakes
