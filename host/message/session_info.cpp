#include "host/message/session_info.h"

#include <algorithm>

#include "host/message/address.h"
#include "host/message/guard.h"

namespace host::message {

const char* SessionInfo::Sender::address() const {
  const auto& sender = message_.envelope().sender;
  return sender ? sender->c_str() : "";
}

const char* SessionInfo::Sender::displayName() const {
  return message_.envelope().senderDisplayName.c_str();
}

int SessionInfo::setSender(const char* address) {
  return guardedCode([&]() -> int {
    if (address == nullptr) return OVMSGERR::InvalidArgument;
    auto mailbox = splitMailbox(address);
    if (!mailbox.address.empty() && !isMailAddress(mailbox.address)) {
      return OVMSGERR::MalformedAddress;
    }
    Envelope& envelope = *message_.envelope_;
    envelope.sender.emplace(std::move(mailbox.address));
    envelope.senderDisplayName = std::move(mailbox.displayName);
    return OVMSGERR::Ok;
  });
}

const OvMsgAddress* SessionInfo::sender() const {
  return message_.envelope().sender ? &sender_ : nullptr;
}

int SessionInfo::recipientCount() const {
  return static_cast<int>(message_.envelope().recipients.size());
}

const char* SessionInfo::recipientAt(int index) const {
  const auto& recipients = message_.envelope().recipients;
  if (index < 0 || static_cast<std::size_t>(index) >= recipients.size()) return nullptr;
  return recipients[static_cast<std::size_t>(index)].c_str();
}

int SessionInfo::insertRecipient(int index, const char* address) {
  return guardedCode([&]() -> int {
    if (index < 0 || address == nullptr) return OVMSGERR::InvalidArgument;
    auto mailbox = splitMailbox(address);
    if (!isMailAddress(mailbox.address)) return OVMSGERR::MalformedAddress;
    auto& recipients = message_.envelope_->recipients;
    const auto place = std::min(static_cast<std::size_t>(index), recipients.size());
    recipients.insert(recipients.begin() + static_cast<std::ptrdiff_t>(place),
                      std::move(mailbox.address));
    return OVMSGERR::Ok;
  });
}

}  // namespace host::message
