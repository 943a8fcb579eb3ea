#include "gateway/policy/delivery_codecs.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "gateway/policy/settings_object.h"
#include "gateway/policy/suggest.h"
#include "host/delivery/smtp_address.h"
#include "library/actions/disposition/handoff.h"
#include "library/actions/disposition/quarantine.h"
#include "library/actions/disposition/readdress.h"

namespace gateway::policy {
namespace {

using host::delivery::AdapterError;

constexpr int kMaxPort = 65535;

template <class Number>
bool parseWhole(std::string_view text, Number& number) {
  const char* end = text.data() + text.size();
  const auto [rest, fault] = std::from_chars(text.data(), end, number);
  return !text.empty() && fault == std::errc() && rest == end;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// --- Recipients ---

/// Adds the addresses of one text to \p recipients.
bool addAddresses(const Node& value, std::string& recipients, const FaultSink& fault) {
  const std::vector<std::string_view> addresses = splitAddresses(value.text);
  if (value.kind != Node::Kind::Scalar || addresses.empty()) {
    fault(value.line, "needs addresses (write: [user@example.org, other@example.org])");
    return false;
  }
  bool good = true;
  for (const std::string_view address : addresses) {
    good = checkAddress(address, value.line, fault) && good;
    if (!recipients.empty()) recipients += ';';
    recipients += address;
  }
  return good;
}

template <class Settings>
bool encodeRecipients(const Node& value, std::string& setting, const FaultSink& fault) {
  std::string recipients;
  if (!readRecipients(value, recipients, fault)) return false;
  Settings settings;
  settings.setRcpt(recipients.c_str());
  setting = settings.serialize();
  return true;
}

std::string lowered(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return out;
}

}  // namespace

std::vector<std::string_view> splitAddresses(std::string_view text) {
  std::vector<std::string_view> addresses;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(';'), text.size());
    std::string_view address = trimmed(text.substr(0, end));
    if (address.size() > 2 && address.front() == '<' && address.back() == '>') {
      address = address.substr(1, address.size() - 2);
    }
    if (!address.empty()) addresses.push_back(address);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return addresses;
}

bool checkAddress(std::string_view address, int line, const FaultSink& fault) {
  switch (host::delivery::checkMailbox(address)) {
    case AdapterError::None:
      return true;
    case AdapterError::Utf8Address:
      fault(line, "address " + inQuotes(address) +
                      " is not ASCII (write the address that its server gives for it)");
      return false;
    default:
      fault(line, inQuotes(address) + " is no address (write: user@example.org)");
      return false;
  }
}

bool readRecipients(const Node& value, std::string& recipients, const FaultSink& fault) {
  recipients.clear();
  if (value.kind != Node::Kind::List || value.items.empty()) {
    return addAddresses(value, recipients, fault);
  }
  bool good = true;
  for (const Node* item : value.items) good = addAddresses(*item, recipients, fault) && good;
  return good;
}

bool encodeObjectIds(const Node& value, std::string& setting, const FaultSink& fault) {
  std::string ids;
  std::size_t count = 0;
  const auto add = [&](const Node& item) {
    unsigned int id = 0;
    if (item.kind != Node::Kind::Scalar || !parseWhole(item.text, id) || id == 0) {
      fault(item.line, "needs an id, not " + inQuotes(item.text) +
                           " (a whole number from 1 up; policies name the object instead)");
      return false;
    }
    ids += "-" + std::to_string(id);
    ++count;
    return true;
  };
  bool good = true;
  if (value.kind == Node::Kind::List && !value.items.empty()) {
    for (const Node* item : value.items) good = add(*item) && good;
  } else {
    good = add(value);
  }
  ActQuarantine list;
  if (!good || !constructFrom(list, std::to_string(count) + ids)) return false;
  setting = list.serialize();
  return true;
}

bool encodeObjectId(const Node& value, std::string& setting, const FaultSink& fault) {
  if (value.kind == Node::Kind::List) {
    fault(value.line, "takes one id (write one)");
    return false;
  }
  return encodeObjectIds(value, setting, fault);
}

bool decodeObjectId(const std::string& setting, std::string& value) {
  std::vector<unsigned int> ids;
  if (!ActQuarantine().getNamedObjectIds(setting.c_str(), static_cast<int>(setting.size()), ids)) {
    return false;
  }
  value.clear();
  for (const unsigned int id : ids) {
    if (!value.empty()) value += ", ";
    value += std::to_string(id);
  }
  return true;
}

bool encodeHandoff(const Node& value, std::string& setting, const FaultSink& fault) {
  const std::string_view text = value.text;
  const std::size_t colon = text.rfind(':');
  std::string_view host = text.substr(0, std::min(colon, text.size()));
  uiHandoff settings;
  if (value.kind != Node::Kind::Scalar || colon == std::string_view::npos ||
      !parseWhole(text.substr(colon + 1), settings.port) || settings.port < 1 ||
      settings.port > kMaxPort) {
    fault(value.line, "needs a host and a port, not " + inQuotes(text) +
                          " (write: \"mail.example.org:25\", \"[2001:db8::1]:25\")");
    return false;
  }
  const bool bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
  if (bracketed) host = host.substr(1, host.size() - 2);
  if (host.empty() || bracketed != (host.find(':') != std::string_view::npos) ||
      host::delivery::checkHost(host) != AdapterError::None) {
    fault(value.line, inQuotes(text) +
                          " names no host (a host name, an IPv4 address, or an IPv6 address in "
                          "brackets)");
    return false;
  }
  settings.ip = host;
  setting = settings.serialize();
  return true;
}

bool decodeHandoff(const std::string& setting, std::string& value) {
  uiHandoff settings;
  if (!constructFrom(settings, setting)) return false;
  const bool brackets = settings.ip.find(':') != std::string::npos;
  value = brackets ? "[" + settings.ip + "]" : settings.ip;
  value += ":" + std::to_string(settings.port);
  return true;
}

bool encodeReaddress(const Node& value, std::string& setting, const FaultSink& fault) {
  return encodeRecipients<uiReaddress>(value, setting, fault);
}

bool encodeBcc(const Node& value, std::string& setting, const FaultSink& fault) {
  return encodeRecipients<uiBcc>(value, setting, fault);
}

bool decodeRecipients(const std::string& setting, std::string& value) {
  uiReaddress settings;
  if (!constructFrom(settings, setting)) return false;
  value.clear();
  for (const std::string_view address : splitAddresses(settings.getRcpt())) {
    if (!value.empty()) value += "; ";
    value += address;
  }
  return true;
}

std::string doubtRecipients(const std::string& setting) {
  uiReaddress settings;
  if (!constructFrom(settings, setting)) return {};
  std::unordered_set<std::string> seen;
  for (const std::string_view address : splitAddresses(settings.getRcpt())) {
    if (!seen.insert(lowered(address)).second) {
      return "names " + inQuotes(address) + " twice (remove one)";
    }
    if (address.find('@') == std::string_view::npos) {
      return "sends to " + inQuotes(address) + ", which has no domain (write: user@example.org)";
    }
  }
  return {};
}

}  // namespace gateway::policy
