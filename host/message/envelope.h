// The SMTP envelope as plain values.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace host::message {

/// Sender and recipients as SMTP knows them, without brackets (RFC 5321 section 2.3.1).
struct Envelope {
  std::optional<std::string> sender;    ///< "" is the null sender; nothing: never set
  std::vector<std::string> recipients;  ///< in the order of arrival
  std::string senderDisplayName;        ///< UTF-8; only for composed mail
};

}  // namespace host::message
