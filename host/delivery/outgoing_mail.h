// A message as it goes out.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/delivery/adapter_error.h"
#include "host/delivery/envelope.h"
#include "host/delivery/mail_source.h"
#include "host/delivery/seal_keys.h"
#include "library/platform/api.h"

namespace host::delivery {

/// The bytes of a message with its reprocessing fields as the receiver may see them. Everything
/// else stays as it is.
class KAVI_API OutgoingMail {
 public:
  /// \param mail  must outlive this object
  explicit OutgoingMail(std::string_view mail) : mail_(mail), rest_(mail) {}

  /// For a server that is not ours: without the fields.
  void withoutFields();

  /// Has the rule that held the message back join those that the fields name, with the type
  /// "postpone", when it is sealed. A message without a header gets one.
  void heldBackBy(unsigned int rule) { rule_ = rule; }

  /// For the listener that scans: the fields, when there is exactly one of rules and type, with a
  /// seal; otherwise without any.
  /// \param passes  those through scanning that the message has behind it
  /// \return None, TooManyPasses or KeyUnavailable; the message is then as it was.
  AdapterError seal(const Envelope& envelope, unsigned int passes, const SealKeys& keys,
                    std::int64_t now);

  SliceSource source() const { return SliceSource({lead_, header_, rest_}); }

 private:
  std::string_view mail_;
  unsigned int rule_ = 0;  ///< that held the message back; 0: none did
  std::string_view lead_;
  std::string header_;  ///< in place of the message's own
  std::string_view rest_;
};

}  // namespace host::delivery
