#include "gateway/cli/expand_command.h"

#include <memory>
#include <optional>

#include "gateway/cli/delivery_setup.h"
#include "gateway/cli/dry_adapter.h"
#include "gateway/cli/json_output.h"
#include "gateway/cli/message_job.h"
#include "gateway/cli/startup.h"
#include "gateway/engine/engine.h"
#include "gateway/policy/token_check.h"
#include "host/core/text_escape.h"
#include "host/delivery/seal_keys.h"

namespace gateway::cli {
namespace {

using host::delivery::ReprocessTrust;
using host::message::Buffer;
using host::message::Message;

void nameDoubtfulTokens(const std::string& text) {
  for (const policy::DoubtfulToken& token : policy::doubtfulTokens(text)) {
    complain(host::core::printable(token.word) + " is no token and stays as it is (did you mean " +
             token.meant + "?)");
  }
}

}  // namespace

int expandCommand(const ExpandOptions& options) {
  JobSettings settings;
  if (!readAddresses(options.from, options.recipients, settings)) return ExitUsage;
  const std::unique_ptr<Startup> startup = Startup::begin(options.config);
  if (startup == nullptr) return ExitUsage;
  const bool hasPolicy = namesPolicy(options.policy, startup->settings());
  settings.policy = hasPolicy ? loadPolicy(options.policy, startup->settings()).snapshot
                              : policy::Snapshot::of({});
  if (settings.policy == nullptr) return ExitUsage;
  host::delivery::DeliverySettings delivery;
  std::optional<host::delivery::SealKeys> keys;
  if (options.reinjected) {
    if (!readDelivery(startup->settings(), options.state, delivery)) return ExitUsage;
    keys.emplace(delivery.sealKeyPath());
  }
  std::string error;
  auto bytes = Buffer::readFile(options.file == "-" ? "/dev/stdin" : options.file, error);
  if (bytes == nullptr) {
    complain(host::core::printable(error));
    return ExitFailed;
  }
  const std::unique_ptr<Message> message = Message::parse(std::move(bytes));
  message->setEnvelope(chooseEnvelope(*message, settings.from, settings.recipients).envelope);
  DryAdapter adapter;
  engine::Surroundings surroundings{.adapter = adapter, .hostName = hostName()};
  if (options.trusted) surroundings.trust = ReprocessTrust::Assumed;
  if (keys) {
    surroundings.trust = ReprocessTrust::Sealed;
    surroundings.sealKeys = &*keys;
  }
  const engine::Expansion expansion =
      engine::expandText(options.text, *message, *settings.policy, surroundings);
  if (!expansion.failure.empty()) {
    complain(expansion.failure);
    return ExitFailed;
  }
  printLine(expansion.text);
  nameDoubtfulTokens(options.text);
  if (hasPolicy && expansion.rule == 0) {
    complain("no rule matches the message: values of rules are missing");
  }
  return ExitDone;
}

}  // namespace gateway::cli
