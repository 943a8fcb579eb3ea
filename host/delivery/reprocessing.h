// Which reprocessing fields of a message count.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/delivery/adapter_error.h"
#include "host/delivery/seal_keys.h"
#include "host/message/message.h"
#include "library/platform/api.h"

namespace host::delivery {

/// Where a message comes from, as far as its reprocessing fields are concerned.
enum class ReprocessTrust {
  Nobody,   ///< from anywhere: none counts, but a seal that holds tells how often it came back
  Sealed,   ///< from the listener that mail is sent back to: those with a seal that holds
  Assumed,  ///< a file of our own: all of them, without a seal
};

/// What a message's reprocessing fields say.
struct Reprocessing {
  bool honoured = false;
  std::vector<unsigned int> rules;  ///< to be skipped; positive
  std::string type;                 ///< the action that sent the message back
  /// How often it came back; what it causes to be sent carries it on. Not honoured, it is known as
  /// long as the seal holds, so that mail that comes back the wrong way goes round no longer.
  unsigned int passes = 0;
  bool astray = false;  ///< our seal holds, but the message came from anywhere
  std::string refusal;  ///< why fields that were there do not count; empty when there is none
};

/// Looks at the reprocessing fields of a message that has just arrived, before anything else does.
/// If they count, the seal is taken out and the other two stay for the actions to see; otherwise
/// all three are taken out. Linear in the message's size.
/// \param msg   as received, with its envelope
/// \param keys  null when there are none: no seal holds
/// \param now   seconds since 1970
/// \return None with \p found filled; KeyUnavailable when a seal cannot be checked: then the
/// message
///   must be refused for now. \p msg is as it was then, and with any other error.
KAVI_API AdapterError admitReprocessing(message::Message& msg, ReprocessTrust trust,
                                        const SealKeys* keys, std::int64_t now,
                                        Reprocessing& found);

/// Takes the reprocessing fields out of a message that goes on: nobody else is to see them.
KAVI_API void removeReprocessing(OvMsgMailMessage& msg);

/// Reads the value of the rules field: positive numbers parted by blanks. \return false, with
/// \p rules as it was, for anything else.
KAVI_API bool parseRuleIds(std::string_view value, std::vector<unsigned int>& rules);

}  // namespace host::delivery
