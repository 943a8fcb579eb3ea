// What the tests of the SMTP client share.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "host/delivery/smtp_client.h"
#include "tests/e2e/smtp/smtp_sink.h"

namespace testing_host {

/// Short limits: a server that stalls must not hold a test up.
inline host::delivery::SmtpTimeouts shortTimeouts() { return {1000, 1000, 4000}; }

inline host::delivery::Envelope envelopeTo(std::vector<std::string> recipients) {
  return {"sender@example.org", std::move(recipients)};
}

/// \p text with every line break as CR LF, CRs before an LF being part of it.
inline std::string withCrLf(std::string_view text) {
  std::string out;
  for (std::size_t index = 0; index < text.size();) {
    const std::size_t behind = std::min(text.find_first_not_of('\r', index), text.size());
    if (behind < text.size() && text[behind] == '\n') {
      out += "\r\n";
      index = behind + 1;
    } else if (behind > index) {
      for (; index < behind; ++index) out += "\r\n";
    } else {
      out += text[index++];
    }
  }
  return out;
}

/// The same with a line break at the end: what arrives of a message.
inline std::string asReceived(std::string_view text) {
  std::string out = withCrLf(text);
  if (!out.empty() && !out.ends_with('\n')) out += "\r\n";
  return out;
}

/// Sends \p bytes in pieces of \p pieceBytes.
inline host::delivery::SmtpOutcome sendBytes(
    host::delivery::SmtpClient& client, const host::delivery::SmtpDestination& to,
    const host::delivery::Envelope& envelope, std::string_view bytes,
    std::size_t pieceBytes = 1 << 20, host::delivery::SmtpTimeouts limits = shortTimeouts()) {
  std::vector<std::string_view> slices;
  for (std::size_t at = 0; at < bytes.size(); at += pieceBytes) {
    slices.push_back(bytes.substr(at, pieceBytes));
  }
  const host::delivery::SliceSource source(std::move(slices));
  return client.send(to, limits, {envelope, source, "0123456789abcdef"});
}

}  // namespace testing_host
