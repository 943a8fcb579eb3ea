#include "gateway/cli/envelope.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "host/message/address.h"
#include "host/message/entity.h"
#include "host/message/field_lookup.h"
#include "host/message/header_field.h"

namespace gateway::cli {
namespace {

using host::message::Entity;
using host::message::HeaderField;

void chooseSender(const Entity* root, ChosenEnvelope& chosen) {
  for (const char* name : {"Return-Path", "From"}) {
    const HeaderField* field = root != nullptr ? root->field(name) : nullptr;
    if (field == nullptr) continue;
    std::vector<std::string> addresses = host::message::addressList(*field);
    const bool null = addresses.empty() && field->unfoldedValue() == "<>";
    if (addresses.empty() && !null) continue;
    chosen.envelope.sender = null ? std::string() : std::move(addresses.front());
    chosen.senderSource = name;
    return;
  }
  chosen.envelope.sender = std::string();
  chosen.senderSource = "none";
}

/// Appends the addresses of the first \p maxFields fields \p name. \return whether there was one.
bool appendRecipients(const Entity& root, const char* name, std::size_t maxFields,
                      std::unordered_set<std::string>& seen, std::vector<std::string>& recipients) {
  bool found = false;
  for (const HeaderField* field : host::message::fieldsNamed(root, name)) {
    if (maxFields-- == 0) break;
    for (std::string& address : host::message::addressList(*field)) {
      found = true;
      if (seen.insert(address).second) recipients.push_back(std::move(address));
    }
  }
  return found;
}

void chooseRecipients(const Entity* root, ChosenEnvelope& chosen) {
  chosen.recipientsSource = "none";
  if (root == nullptr) return;
  std::unordered_set<std::string> seen;
  std::vector<std::string>& recipients = chosen.envelope.recipients;
  // The top one is that of the last delivery.
  if (appendRecipients(*root, "Delivered-To", 1, seen, recipients)) {
    chosen.recipientsSource = "Delivered-To";
    return;
  }
  constexpr std::size_t kAll = static_cast<std::size_t>(-1);
  const bool to = appendRecipients(*root, "To", kAll, seen, recipients);
  const bool cc = appendRecipients(*root, "Cc", kAll, seen, recipients);
  if (to || cc) chosen.recipientsSource = to && cc ? "To, Cc" : (to ? "To" : "Cc");
}

}  // namespace

ChosenEnvelope chooseEnvelope(const host::message::Message& message,
                              const std::optional<std::string>& from,
                              const std::vector<std::string>& recipients) {
  ChosenEnvelope chosen;
  const Entity* root = message.firstEntity();
  if (from) {
    chosen.envelope.sender = *from;
    chosen.senderSource = "--from";
  } else {
    chooseSender(root, chosen);
  }
  if (!recipients.empty()) {
    chosen.envelope.recipients = recipients;
    chosen.recipientsSource = "--rcpt";
  } else {
    chooseRecipients(root, chosen);
  }
  return chosen;
}

std::optional<std::string> plainAddress(const std::string& text) {
  std::string address = text;
  if (address.size() >= 2 && address.front() == '<' && address.back() == '>') {
    address = address.substr(1, address.size() - 2);
  }
  if (!address.empty() && !host::message::isMailAddress(address)) return std::nullopt;
  return address;
}

}  // namespace gateway::cli
