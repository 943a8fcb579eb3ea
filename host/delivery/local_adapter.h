// The adapter that acts for real.
#pragma once

#include "host/delivery/delivery_state.h"
#include "library/platform/is_adapter.h"

namespace host::delivery {

/// Deletes (a flushed line in the decisions file says which message went, from whom, to whom) and
/// postpones (the message waits in the spool). Every other operation fails with
/// AdapterError::NotAvailable and does nothing, so that the caller keeps the message. Holds no
/// state of its own: one per message, or one for many.
class KAVI_API LocalAdapter final : public OvIsAdapter {
 public:
  /// \param state  open; must outlive the adapter.
  explicit LocalAdapter(DeliveryState& state) : state_(state) {}

  int deleteMessage(unsigned int& error, OvMsgMailMessage* msg) override;
  int postponeMessage(unsigned int& error, OvMsgMailMessage* msg, unsigned char fromHour,
                      unsigned char fromMinute, unsigned char toHour,
                      unsigned char toMinute) override;
  int handoffMessage(unsigned int& error, OvMsgMailMessage* msg, const char* host,
                     int port) override;
  int quarantineMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                        const char* directory, char (&path)[kQuarantinePathSize]) override;
  int archiveMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                     const char* directory, const char (&area)[kArchiveAreaNameSize]) override;
  int resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) override;
  int deliverMessage(unsigned int& error, OvMsgMailMessage* msg) override;

 private:
  DeliveryState& state_;
};

}  // namespace host::delivery
