// What an adapter does with messages that are to be sent.
#pragma once

#include <cstdint>
#include <string>

#include "host/delivery/delivery_settings.h"
#include "host/delivery/smtp_observer.h"
#include "host/delivery/smtp_outcome.h"
#include "host/delivery/spool.h"
#include "library/platform/api.h"
#include "library/platform/log_msg.h"

namespace host::delivery {

/// An entry's place in the spool, and what is known of an earlier attempt at it.
struct SpoolSlot {
  std::string id;       ///< from Spool::newId
  std::string earlier;  ///< that an attempt which was cut off had; empty when there was none
};

/// Files messages for submission, and hands messages off. Nothing is submitted from here: whoever
/// waits for the present message to be done may be the same mail system that would take the new
/// one. One thread at a time.
class KAVI_API Outbox {
 public:
  /// \param settings  null: postponed messages are filed unchecked, and everything else answers
  ///   NotAvailable
  /// \param log       may be null
  /// \param observer  hears of what is handed off; may be null
  Outbox(Spool& spool, const DeliverySettings* settings, Kavi::LogMsg* log,
         SmtpObserver* observer = nullptr)
      : spool_(spool), settings_(settings), log_(log), observer_(observer) {}

  /// Files \p msg in the spool under the id of \p slot. What could never be sent (an address that
  /// SMTP cannot carry, no recipients, no server to send to) is refused here, while somebody can
  /// still act. What an earlier attempt filed and is still there counts instead; of one that was
  /// cut off and left nothing, the log says that the message may be doubled: it may have been sent
  /// meanwhile.
  /// \param entry  its kind, window, passes and rule
  /// \param filed  receives a new entry; nobody sends it while its hold lasts. May be null
  AdapterError file(SpoolEntry entry, const OvMsgMailMessage& msg, const SpoolSlot& slot,
                    FiledEntry* filed = nullptr);

  /// Sends \p msg to \p host and \p port within the deadline that the settings give, without its
  /// reprocessing fields. \param host  a name or an address; an IPv6 address may have brackets
  /// \return Uncertain when the server may have taken it though it did not say so.
  /// \param tried  an earlier attempt was cut off and may have succeeded: the log says so
  AdapterError handOff(const OvMsgMailMessage& msg, std::string host, int port, bool tried);

  /// How long one hand-off may be under way at most.
  std::int64_t handOffLeaseSeconds() const;

  /// Writes into the log that \p msg is possibly doubled. \param why  printable
  void warnOfDouble(const OvMsgMailMessage& msg, const std::string& why) const;

 private:
  AdapterError check(const SpoolEntry& entry, const OvMsgMailMessage& msg) const;
  AdapterError refuse(const OvMsgMailMessage& msg, const SmtpOutcome& outcome) const;
  SmtpOutcome send(const OvMsgMailMessage& msg, const SmtpDestination& to) const;

  Spool& spool_;
  const DeliverySettings* settings_;
  Kavi::LogMsg* log_;
  SmtpObserver* observer_;
};

}  // namespace host::delivery
