// The adapter that acts for real.
#pragma once

#include <string>
#include <string_view>

#include "host/delivery/delivery_state.h"
#include "host/delivery/message_effects.h"
#include "host/delivery/message_run.h"
#include "library/platform/is_adapter.h"

namespace host::delivery {

/// Deletes (a flushed line in the decisions file says which message went, from whom, to whom),
/// postpones (the message waits in the spool), quarantines and archives (see Filing). Every other
/// operation fails with AdapterError::NotAvailable and does nothing, so that the caller keeps the
/// message. Made for one message: what the engine tells it as a MessageRun says which rule asks,
/// and lets a retry find what was done.
class KAVI_API LocalAdapter final : public OvIsAdapter, public MessageRun {
 public:
  /// \param state  open; must outlive the adapter.
  explicit LocalAdapter(DeliveryState& state) : state_(state), effects_(state.store()) {}

  AdapterError beginMessage(const OvMsgMailMessage& msg, std::string_view received,
                            const Kavi::TokenMap<Kavi::ScanToken>& tokens) override;
  AdapterError beginAction(unsigned int ruleId, unsigned int position,
                           std::string_view setting) override;
  AdapterError finalAnswer(FinalAnswer answer) override;
  const std::string& lastFault() const override { return effects_.lastFault(); }

  int deleteMessage(unsigned int& error, OvMsgMailMessage* msg) override;
  int postponeMessage(unsigned int& error, OvMsgMailMessage* msg, unsigned char fromHour,
                      unsigned char fromMinute, unsigned char toHour,
                      unsigned char toMinute) override;
  int handoffMessage(unsigned int& error, OvMsgMailMessage* msg, const char* host,
                     int port) override;
  /// Files the message as "<id[0]>/<id[1]>/<id>.DF" below \p directory, which must exist.
  /// Rule, aging days and area of its row come from the token map (codes 4, 3 and 49).
  int quarantineMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                        const char* directory, char (&path)[kQuarantinePathSize]) override;
  /// Files the message as "<area>/<id>.eml" below \p directory, which must exist. Rule and aging
  /// days of its row come from the token map (codes 4 and 68); so does the area (code 67) when
  /// \p area is what fits of it.
  int archiveMessage(unsigned int& error, OvMsgMailMessage* msg, const char* reserved,
                     const char* directory, const char (&area)[kArchiveAreaNameSize]) override;
  int resendMessage(unsigned int& error, OvMsgMailMessage* msg, int flag) override;
  int deliverMessage(unsigned int& error, OvMsgMailMessage* msg) override;

 private:
  std::string tokenOrEmpty(Kavi::ScanToken token) const;
  AdapterError file(FilingRequest& request, Kavi::ScanToken aging, OvMsgMailMessage& msg,
                    std::string& stored);

  DeliveryState& state_;
  MessageEffects effects_;
  const Kavi::TokenMap<Kavi::ScanToken>* tokens_ = nullptr;
};

}  // namespace host::delivery
