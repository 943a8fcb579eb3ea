// The values of actions that change the message.
#pragma once

#include <string>

#include "gateway/policy/condition.h"
#include "gateway/policy/node.h"

namespace gateway::policy {

// Codecs of ActionSpec (gateway/policy/action_registry.h).

/// "Name: value".
bool encodeXHeader(const Node& value, std::string& setting, const FaultSink& fault);
bool decodeXHeader(const std::string& setting, std::string& value);
std::string doubtXHeader(const std::string& setting);

/// The tag alone, or {tag: TAG, signed: leave or tag}.
bool encodeTagSubject(const Node& value, std::string& setting, const FaultSink& fault);
bool decodeTagSubject(const std::string& setting, std::string& value);
std::string doubtTagSubject(const std::string& setting);

/// "matching" for the attachments that the rule's condition marks, "all" for every one.
bool encodeDeleteAttachments(const Node& value, std::string& setting, const FaultSink& fault);
bool decodeDeleteAttachments(const std::string& setting, std::string& value);

}  // namespace gateway::policy
