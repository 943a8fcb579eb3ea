// The envelope of a message as the adapters keep it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/core/json_object.h"

class OvMsgMailMessage;

namespace host::delivery {

struct Envelope {
  std::optional<std::string> sender;  ///< without brackets; empty is the null sender
  std::vector<std::string> recipients;

  bool operator==(const Envelope&) const = default;
};

/// The present envelope of \p msg; an empty one when it has none.
Envelope readEnvelope(const OvMsgMailMessage& msg);

/// {"sender": ..., "recipients": [...]}; a missing sender is null.
core::JsonObject toJson(const Envelope& envelope);

}  // namespace host::delivery
