#include "gateway/cli/notify_command.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <memory>
#include <utility>

#include "gateway/cli/delivery_setup.h"
#include "gateway/cli/dry_adapter.h"
#include "gateway/cli/json_output.h"
#include "gateway/cli/message_job.h"
#include "gateway/cli/startup.h"
#include "gateway/engine/engine.h"
#include "gateway/policy/action_registry.h"
#include "gateway/policy/loader.h"
#include "gateway/policy/suggest.h"
#include "host/core/text_escape.h"
#include "host/delivery/envelope.h"
#include "host/delivery/mail_source.h"
#include "host/delivery/smtp_client.h"

namespace gateway::cli {
namespace {

using host::core::printable;
using host::message::Buffer;
using host::message::Message;
using policy::PolicyRows;
using policy::RuleRow;

/// The id of a notification; 0 after writing why there is none.
unsigned int findNotification(const PolicyRows& rows, const std::string& name) {
  std::vector<std::string_view> names;
  for (const policy::NamedObjectRow& object : rows.objects) {
    if (object.type != KaviNamedObj::NotificationType) continue;
    if (object.name == name) return object.id;
    names.push_back(object.name);
  }
  complain("the policy declares no notification " + policy::inQuotes(name) + " " +
           (names.empty() ? "(declare it under notifications:)" : policy::remedyFor(name, names)));
  return 0;
}

/// The first rule that sends the notification, or one of our own.
RuleRow ruleFor(const PolicyRows& rows, unsigned int notification) {
  const policy::ActionSpec& notify = *policy::findAction(KaviAction::Notify);
  for (const RuleRow& rule : rows.rules) {
    for (const policy::ActionRow& action : rule.actions) {
      if (action.type != notify.type) continue;
      const std::vector<unsigned int> ids = notify.objectIds(action.setting);
      if (std::find(ids.begin(), ids.end(), notification) != ids.end()) return rule;
    }
  }
  RuleRow rule;
  rule.id = 1;
  rule.name = "preview";
  return rule;
}

/// How rows say that a rule matches every message.
std::string alwaysCondition() {
  policy::Diagnostics diagnostics("always");
  const auto loaded =
      policy::loadPolicy("rules: [{id: 1, when: always, actions: [delete]}]", diagnostics);
  return loaded->rows.rules.front().condition;
}

/// The notification, and behind it what its tokens tell of: where the rule quarantines the message.
std::vector<policy::ActionRow> rehearsed(const RuleRow& rule, unsigned int notification) {
  std::vector<policy::ActionRow> actions{{KaviAction::Notify, "1-" + std::to_string(notification)}};
  std::copy_if(
      rule.actions.begin(), rule.actions.end(), std::back_inserter(actions),
      [](const policy::ActionRow& action) { return action.type == KaviAction::Quarantine; });
  return actions;
}

/// Runs the notification as its rule does. When the rule does not match, as if it did.
engine::Outcome rehearse(PolicyRows rows, unsigned int notification, Message& message,
                         const engine::Surroundings& surroundings) {
  RuleRow rule = ruleFor(rows, notification);
  rule.enabled = true;
  rule.actions = rehearsed(rule, notification);
  engine::Outcome outcome;
  for (const std::string& condition : {rule.condition, alwaysCondition()}) {
    if (condition.empty()) continue;
    rule.condition = condition;
    rows.rules = {rule};
    policy::Diagnostics diagnostics("preview");
    const auto snapshot = policy::Snapshot::build(rows, diagnostics);
    if (snapshot == nullptr) {
      complain(diagnostics);
      break;
    }
    outcome = engine::runMessage(message, *snapshot, surroundings);
    if (!outcome.rules.empty()) break;
  }
  return outcome;
}

std::string bracketed(const std::vector<std::string>& addresses) {
  std::string text;
  for (const std::string& address : addresses) {
    text += (text.empty() ? "<" : ", <") + printable(address) + ">";
  }
  return text;
}

void complainOf(const engine::Outcome& outcome) {
  if (!outcome.failure.empty()) complain(printable(outcome.failure));
  for (const engine::RuleReport& rule : outcome.rules) {
    for (const engine::ActionReport& action : rule.actions) {
      for (const auto& line : action.log) complain(printable(line.text));
      if (!action.failure.empty()) complain(printable(action.failure));
    }
  }
}

/// What the notification made.
struct Result {
  const engine::OwnMail* mail = nullptr;
  const host::trap::RecordedTrap* trap = nullptr;
};

Result resultOf(const engine::Outcome& outcome) {
  Result result;
  if (outcome.rules.empty() || outcome.rules.front().actions.empty()) return result;
  const engine::ActionReport& action = outcome.rules.front().actions.front();
  if (!action.handOvers.empty() && action.handOvers.front().mail) {
    result.mail = &*action.handOvers.front().mail;
  }
  if (!action.traps.empty()) result.trap = &action.traps.front();
  return result;
}

int preview(const Result& result) {
  if (result.mail != nullptr) {
    printAside("mail from <" + printable(result.mail->sender) + "> to " +
               bracketed(result.mail->recipients) + "\n");
    printText(result.mail->bytes);
  }
  if (result.trap != nullptr) {
    printAside("trap to " + printable(result.trap->server) + ", type " +
               std::to_string(result.trap->specificType) + ": " + printable(result.trap->text) +
               "\n");
  }
  return std::fflush(stdout) == 0 ? ExitDone : ExitFailed;
}

int sendTest(const engine::OwnMail& mail, const std::string& address,
             const host::delivery::DeliverySettings& delivery) {
  host::delivery::Envelope envelope;
  envelope.sender = mail.sender;
  envelope.recipients = {address};
  host::delivery::SmtpClient client(delivery.helloName);
  const host::delivery::SliceSource source(std::vector<std::string_view>{mail.bytes});
  const host::delivery::SmtpOutcome outcome =
      client.send(delivery.plain, delivery.timeouts, {envelope, source, ""});
  if (!outcome.isSent()) {
    complain(outcome.text());
    return ExitFailed;
  }
  printLine("sent to <" + printable(address) + "> through " + printable(delivery.plain.text()));
  return ExitDone;
}

}  // namespace

int notifyCommand(const NotifyOptions& options) {
  JobSettings settings;
  const std::unique_ptr<Startup> startup = Startup::begin(options.config);
  if (startup == nullptr || !readAddresses(options.from, options.recipients, settings)) {
    return ExitUsage;
  }
  host::delivery::DeliverySettings delivery;
  const bool isTest = !options.sendTest.empty();
  const std::optional<std::string> tested = plainAddress(options.sendTest);
  if (isTest && (!tested || tested->empty())) {
    complain("--send-test " + printable(options.sendTest) +
             ": no address (write: user@example.org)");
    return ExitUsage;
  }
  if (isTest && !readDelivery(startup->settings(), "", delivery)) return ExitUsage;
  if (isTest && !delivery.plain.isSet()) {
    complain("no server to send through (set plain_host in section [delivery] of --config)");
    return ExitUsage;
  }
  policy::StoredPolicy loaded = loadPolicy(options.policy, startup->settings());
  const unsigned int id = loaded ? findNotification(loaded.rows, options.name) : 0;
  if (id == 0) return ExitUsage;
  std::string error;
  auto bytes = Buffer::readFile(options.file == "-" ? "/dev/stdin" : options.file, error);
  if (bytes == nullptr) {
    complain(printable(error));
    return ExitFailed;
  }
  const std::unique_ptr<Message> message = Message::parse(std::move(bytes));
  message->setEnvelope(chooseEnvelope(*message, settings.from, settings.recipients).envelope);
  DryAdapter adapter;
  const engine::Outcome outcome = rehearse(
      std::move(loaded.rows), id, *message,
      {.adapter = adapter, .log = &startup->log(), .isRehearsal = true, .hostName = hostName()});
  const Result result = resultOf(outcome);
  if (outcome.verdict == engine::Verdict::Failed || (result.mail == nullptr && isTest) ||
      (result.mail == nullptr && result.trap == nullptr)) {
    complainOf(outcome);
    return ExitFailed;
  }
  return isTest ? sendTest(*result.mail, *tested, delivery) : preview(result);
}

}  // namespace gateway::cli
