// The values of actions that refer to named objects, and of those that say where mail goes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "gateway/policy/condition.h"
#include "gateway/policy/node.h"

namespace gateway::policy {

// Codecs of ActionSpec (gateway/policy/action_registry.h).

/// An area or a stamp. The value is the id of the named object, in decimal: the loader puts it in
/// the place of the name.
bool encodeObjectId(const Node& value, std::string& setting, const FaultSink& fault);
bool decodeObjectId(const std::string& setting, std::string& value);

/// One or several notifications: an id, or a list of ids.
bool encodeObjectIds(const Node& value, std::string& setting, const FaultSink& fault);

/// "host:port", "[address]:port" for an IPv6 address.
bool encodeHandoff(const Node& value, std::string& setting, const FaultSink& fault);
bool decodeHandoff(const std::string& setting, std::string& value);

/// Addresses: a list of texts, or one text, of addresses separated by ";".
bool encodeReaddress(const Node& value, std::string& setting, const FaultSink& fault);
bool encodeBcc(const Node& value, std::string& setting, const FaultSink& fault);
bool decodeRecipients(const std::string& setting, std::string& value);
std::string doubtRecipients(const std::string& setting);

/// The addresses of "a; b;", without blanks around them and without brackets.
std::vector<std::string_view> splitAddresses(std::string_view text);

/// Whether \p address can be mailed to; if not, \p fault is told why.
bool checkAddress(std::string_view address, int line, const FaultSink& fault);

/// Replaces \p recipients by addresses separated by ";": of a list of texts, or of one text.
bool readRecipients(const Node& value, std::string& recipients, const FaultSink& fault);

}  // namespace gateway::policy
