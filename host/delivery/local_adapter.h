// The adapter that acts for real.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/delivery/delivery_state.h"
#include "host/delivery/message_effects.h"
#include "host/delivery/message_run.h"
#include "host/delivery/outbox.h"
#include "library/platform/is_adapter.h"

namespace host::delivery {

/// Deletes (a flushed line in the decisions file says which message went, from whom, to whom),
/// postpones (the message waits in the spool, with a row in the index), quarantines and archives
/// (see Filing), files what is to be sent in the spool, and hands messages off at once (see
/// Outbox). Without settings the last three fail with AdapterError::NotAvailable and do nothing.
/// Made for one message: what the engine tells it as a MessageRun says which rule asks, and lets a
/// retry find what was done.
class KAVI_API LocalAdapter final : public OvIsAdapter, public MessageRun {
 public:
  /// \param state  open; must outlive the adapter.
  /// \param settings  how to send; must outlive the adapter
  /// \param log       receives what servers answered, at level 1; may be null
  explicit LocalAdapter(DeliveryState& state, const DeliverySettings* settings = nullptr,
                        Kavi::LogMsg* log = nullptr)
      : state_(state),
        effects_(state.store()),
        outbox_(state.spool(), settings, log, state.smtpObserver()) {}

  void setPasses(unsigned int passes) override { passes_ = passes; }
  AdapterError beginMessage(const OvMsgMailMessage& msg, std::string_view received,
                            const Kavi::TokenMap<Kavi::ScanToken>& tokens) override;
  AdapterError beginAction(unsigned int ruleId, unsigned int position,
                           std::string_view setting) override;
  AdapterError finalAnswer(FinalAnswer answer) override;
  const std::string& lastFault() const override { return effects_.lastFault(); }
  std::string lastPlace() const override { return lastPlace_; }
  /// Instead of `finalAnswer`, when many messages get theirs at once (DeliveryState).
  /// \return the message as the ledger knows it; nothing when it had no effects.
  std::optional<store::Digest> leaveUnanswered() { return effects_.leaveUnanswered(); }

  /// Whether something of this message may have been filed in the spool: its sender is to be woken.
  bool mayHaveSpooled() const { return mayHaveSpooled_; }

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

  AdapterError holdBack(SpoolEntry entry, OvMsgMailMessage& msg, const SpoolSlot& slot);
  int queue(unsigned int& error, const OvMsgMailMessage* msg, const char* kind);
  /// One effect that puts something into the spool. \param body  takes its SpoolSlot
  template <class Body>
  int spool(unsigned int& error, const char* operation, Body&& body);

  DeliveryState& state_;
  MessageEffects effects_;
  Outbox outbox_;
  unsigned int passes_ = 0;
  bool mayHaveSpooled_ = false;
  std::string lastPlace_;  ///< of the last copy that was filed
  const Kavi::TokenMap<Kavi::ScanToken>* tokens_ = nullptr;
};

}  // namespace host::delivery
