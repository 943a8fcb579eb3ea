#include "host/delivery/smtp_address.h"

#include <algorithm>

namespace host::delivery {

namespace {

// RFC 5321 section 4.5.3.1.3 asks for 256; some systems give longer ones out.
constexpr std::size_t kMaxAddressBytes = 512;
constexpr std::size_t kMaxHostBytes = 255;

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }
bool isAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }
bool isAlphaNumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

}  // namespace

AdapterError checkMailbox(std::string_view address) {
  if (address.empty() || address.size() > kMaxAddressBytes) return AdapterError::BadAddress;
  if (std::any_of(address.begin(), address.end(), isControl)) return AdapterError::BadAddress;
  if (!std::all_of(address.begin(), address.end(), isAscii)) return AdapterError::Utf8Address;
  bool quoted = false;
  for (std::size_t index = 0; index < address.size(); ++index) {
    const char c = address[index];
    if (quoted && c == '\\') {
      ++index;
      if (index == address.size()) return AdapterError::BadAddress;
    } else if (c == '"') {
      // Only the whole local part is ever quoted (RFC 5321 section 4.1.2).
      const bool closes = quoted && index + 1 < address.size() && address[index + 1] == '@';
      if (!closes && index != 0) return AdapterError::BadAddress;
      quoted = !quoted;
    } else if (!quoted && (c == ' ' || c == '<' || c == '>' || c == '\\')) {
      return AdapterError::BadAddress;
    }
  }
  return quoted ? AdapterError::BadAddress : AdapterError::None;
}

AdapterError checkEnvelope(const Envelope& envelope, std::string_view& faulty) {
  if (envelope.sender && !envelope.sender->empty()) {
    const AdapterError error = checkMailbox(*envelope.sender);
    if (error != AdapterError::None) {
      faulty = *envelope.sender;
      return error;
    }
  }
  if (envelope.recipients.empty()) return AdapterError::NoRecipients;
  for (const std::string& recipient : envelope.recipients) {
    const AdapterError error = checkMailbox(recipient);
    if (error == AdapterError::None) continue;
    faulty = recipient;
    return error;
  }
  return AdapterError::None;
}

AdapterError checkHost(std::string_view host) {
  if (host.empty() || host.size() > kMaxHostBytes) return AdapterError::BadAddress;
  const bool isName = std::all_of(host.begin(), host.end(), [](char c) {
    return isAlphaNumeric(c) || c == '-' || c == '_' || c == '.';
  });
  // A name that begins like an option or a path is none.
  if (isName) return isAlphaNumeric(host[0]) ? AdapterError::None : AdapterError::BadAddress;
  const bool isIpv6 = std::count(host.begin(), host.end(), ':') >= 2 &&
                      std::all_of(host.begin(), host.end(),
                                  [](char c) { return isHexDigit(c) || c == ':' || c == '.'; });
  return isIpv6 ? AdapterError::None : AdapterError::BadAddress;
}

}  // namespace host::delivery
