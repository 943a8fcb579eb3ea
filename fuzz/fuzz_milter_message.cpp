// What a mail system says of a message, in any order and with any content, is gathered or refused
// without harm. What was gathered needs no change as long as nobody changed it; after any edits,
// the changes that the mail system is told make its message the same as ours, and no value of a
// field begins another one.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/check.h"
#include "gateway/milter/change_set.h"
#include "gateway/milter/collected_message.h"
#include "host/message/entity.h"
#include "host/message/message.h"
#include "library/platform/msgu.h"
#include "library/platform/ov_msg_header.h"
#include "tests/unit/gateway/milter/mail_system.h"

namespace {

using fuzz::require;
using gateway::milter::ChangeSet;
using gateway::milter::CollectedMessage;
using host::message::Envelope;
using host::message::Message;

constexpr std::size_t kMostText = 300;
constexpr const char* kNames[] = {"Subject", "X-A", "x-a", "Received", "Content-Type"};

class Conversation {
 public:
  Conversation(const std::uint8_t* data, std::size_t size) : input_(data, size) {}

  void run() {
    gateway::milter::MessageLimits limits;
    limits.bytes = input_.ConsumeIntegralInRange<std::size_t>(0, 8192);
    limits.headerFields = input_.ConsumeIntegralInRange<std::size_t>(0, 40);
    limits.headerBytes = input_.ConsumeIntegralInRange<std::size_t>(0, 4096);
    limits.recipients = input_.ConsumeIntegralInRange<std::size_t>(0, 6);
    // Beyond so many bytes they go to a file.
    const bool inMemory = input_.ConsumeIntegral<std::uint8_t>() != 0;
    CollectedMessage collected(limits, "/tmp", inMemory ? 1U << 20 : 64);
    for (int steps = input_.ConsumeIntegralInRange(0, 30); steps > 0; --steps) tell(collected);
    const auto bytes = collected.takeBytes();
    if (bytes == nullptr) {
      require(!collected.fault().empty() || !collected.excess().empty(), "no reason");
      return;
    }
    require(collected.headerFields() <= limits.headerFields, "too many fields");
    require(collected.recipients().size() <= limits.recipients, "too many recipients");
    const auto message = Message::parse(bytes);
    message->setEnvelope(collected.envelope());
    const auto unchanged = gateway::milter::changesOf(*message, collected.envelope());
    require(unchanged && unchanged->isEmpty(), "changes of an unchanged message");
    for (int edits = input_.ConsumeIntegralInRange(0, 8); edits > 0; --edits) edit(*message);
    check(*message, collected.envelope());
  }

 private:
  std::string text() { return input_.ConsumeRandomLengthString(kMostText); }
  /// Without NUL, as libmilter gives and takes it.
  std::string plain() {
    std::string found = text();
    return found.substr(0, found.find('\0'));
  }
  std::string name() {
    return input_.ConsumeBool() ? std::string(input_.PickValueInArray(kNames)) : plain();
  }

  void tell(CollectedMessage& collected) {
    switch (input_.ConsumeIntegralInRange(0, 9)) {
      case 0:
        return collected.setSender(plain(), {plain(), plain()});
      case 1:
      case 2:
        return collected.addRecipient(plain(), {plain()});
      case 3:
        return collected.endHeader();
      case 4:
      case 5:
        return collected.addBody(text());
      default:
        return collected.addHeader(name(), plain());
    }
  }

  void edit(Message& message) {
    host::message::Entity* root = message.firstEntity();
    if (root == nullptr) return;
    const int count = root->headerCount();
    const int at = count == 0 ? 0 : input_.ConsumeIntegralInRange(0, count - 1);
    const std::string field = input_.PickValueInArray(kNames);
    switch (input_.ConsumeIntegralInRange(0, 7)) {
      case 0:
        msgu::setHeader(root, field.c_str(), plain().c_str(),
                        input_.ConsumeBool() ? "utf-8" : nullptr);
        return;
      case 1:
        root->addHeader(at, field.c_str(), plain().c_str(), nullptr);
        return;
      case 2:
        root->removeHeaderAt(at);
        return;
      case 3:
        root->removeHeader(field.c_str());
        return;
      case 4:
        if (OvMsgHeader* header = root->headerAt(at)) header->setRawValue(plain().c_str(), nullptr);
        return;
      case 5:
        if (auto* entity = root->nextEntity()) msgu::removeEntityAndDummyParent(entity, "");
        return;
      case 6:
        msgu::removeRootEntity(root, "utf-8");
        return;
      default:
        msgu::setRcpt(&message, plain().c_str(), input_.ConsumeBool());
    }
  }

  static void check(const Message& message, const Envelope& before) {
    const auto changes = gateway::milter::changesOf(message, before);
    if (!changes) return;  // then the mail system keeps it
    for (const auto& edit : changes->headers) {
      require(edit.value.find('\0') == std::string::npos, "a value with a NUL");
      for (std::size_t at = 0; (at = edit.value.find('\n', at)) != std::string::npos; ++at) {
        const char next = at + 1 < edit.value.size() ? edit.value[at + 1] : '\0';
        require(next == ' ' || next == '\t', "a value that begins another field");
      }
    }
    require(gateway::milter::delivered(message, *changes) == message.toString(), "another message");
    const auto recipients = gateway::milter::applyRecipients(before.recipients, *changes);
    for (const std::string& address : message.envelope().recipients) {
      bool found = false;
      for (const std::string& each : recipients) {
        found = found || host::message::equalsIgnoreCase(each, address);
      }
      require(found, "a recipient is missing");
    }
  }

  FuzzedDataProvider input_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size <= 8192) Conversation(data, size).run();
  return 0;
}
