#include "tests/fakes/session.h"

#include <algorithm>
#include <iterator>

#include "library/platform/ov_msg_error.h"
#include "tests/fakes/fault_plan.h"
#include "tests/fakes/message.h"

namespace fakes {

const char* Session::Sender::address() const {
  return platformCallFails() || facts_.hidesSenderAddress ? nullptr : facts_.sender->c_str();
}

const char* Session::Sender::displayName() const {
  return platformCallFails() ? nullptr : facts_.senderName.c_str();
}

Session::Session(MessageFacts& facts) : facts_(facts), sender_(facts) {}

int Session::setSender(const char* address) {
  if (platformCallFails()) {
    return OVMSGERR::MalformedAddress;
  }
  if (facts_.senderAnswer == OVMSGERR::Ok) {
    facts_.sender = address;
  }
  return facts_.senderAnswer;
}

const OvMsgAddress* Session::sender() const {
  return platformCallFails() || !facts_.sender ? nullptr : &sender_;
}

int Session::recipientCount() const {
  return platformCallFails() ? 0 : static_cast<int>(facts_.recipients.size());
}

const char* Session::recipientAt(int index) const {
  if (platformCallFails() || index < 0 || index >= static_cast<int>(facts_.recipients.size())) {
    return nullptr;
  }
  return std::next(facts_.recipients.begin(), index)->c_str();
}

int Session::insertRecipient(int index, const char* address) {
  if (platformCallFails()) {
    return OVMSGERR::MalformedAddress;
  }
  {
    const Unswept unswept;
    facts_.calls.push_back("insertRecipient " + std::to_string(index) + " " + address);
  }
  const auto place =
      std::min<std::size_t>(static_cast<std::size_t>(index), facts_.recipients.size());
  facts_.recipients.insert(std::next(facts_.recipients.begin(), static_cast<long>(place)), address);
  return OVMSGERR::Ok;
}

}  // namespace fakes
