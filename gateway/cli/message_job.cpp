#include "gateway/cli/message_job.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

#include "gateway/cli/startup.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

using host::message::Buffer;
using host::message::Message;

std::string nameOf(const InputMessage& input) {
  std::string name = input.file->path == "-" ? "standard input" : input.file->path;
  if (input.number != 0) name += "[" + std::to_string(input.number) + "]";
  return name;
}

/// Keeps the first fault.
void noteFault(MessageResult& result, const std::string& fault) {
  if (result.error.empty()) result.error = fault;
}

std::unique_ptr<JobAdapter> adapterFor(const Message& message, const InputMessage& input,
                                       const JobSettings& settings) {
  if (settings.adapters != nullptr) return settings.adapters->make(message, input);
  if (settings.out != nullptr) return RecordingAdapters(*settings.out).make(message, input);
  return DryAdapters().make(message, input);
}

void act(Message& message, const InputMessage& input, const JobSettings& settings,
         MessageResult& result) {
  const std::unique_ptr<JobAdapter> job = adapterFor(message, input, settings);
  result.outcome = engine::runMessage(message, *settings.policy,
                                      {.adapter = job->adapter(),
                                       .adapterRun = job->messageRun(),
                                       .log = settings.log,
                                       .logLevel = settings.logLevel,
                                       .isRehearsal = settings.adapters == nullptr,
                                       .protocol = "SMTP",
                                       .hostName = settings.hostName,
                                       .trust = settings.trust,
                                       .sealKeys = settings.sealKeys});
  result.calls = callsOf(result.outcome);
  noteFault(result, job->finish(result.calls));
  result.unanswered = job->unanswered();
}

/// The recipients of what goes on, when they are others than before.
void noteRecipients(const Message& message, MessageResult& result) {
  if (!engine::goesOn(result.outcome.verdict)) return;
  const host::message::Envelope& now = message.envelope();
  if (now.recipients != result.envelope.envelope.recipients) {
    result.outputRecipients = now.recipients;
  }
}

void compareResult(const Message& message, const JobSettings& settings, MessageResult& result) {
  if (result.outcome.verdict != engine::Verdict::Changed) return;
  result.parts = changedParts(message.received(), message);
  if (settings.diff) result.diff = messageDiff(message.received(), message);
}

/// What goes on: the message as it stands, or as it came when the run failed. Mail of a failed run
/// does not go on: it stays with whoever has it.
void writeResult(const Message& message, std::shared_ptr<const Buffer> received,
                 const JobSettings& settings, MessageResult& result) {
  using engine::Verdict;
  const Verdict verdict = result.outcome.verdict;
  const bool asReceived = verdict == Verdict::Failed || verdict == Verdict::Unchanged;
  const bool hasResult = asReceived || verdict == Verdict::Changed;
  if (hasResult) {
    result.outputBytes = asReceived ? message.receivedBytes().size() : message.renderedSize();
  }
  if (settings.out == nullptr || (verdict == Verdict::Failed && settings.out->isMail())) return;
  const std::string& name = result.file->outputName;
  if (result.number != 0) {
    if (!hasResult) return;
    result.rendered = asReceived ? std::move(received) : Buffer::adopt(message.toString());
  } else if (hasResult) {
    OutputFile file(*settings.out, name);
    if (asReceived) {
      file.write(message.receivedBytes().data(), message.receivedBytes().size());
    } else {
      message.render(file);  // what fails is answered by commit
    }
    const std::string fault = file.commit();
    noteFault(result, fault);
    if (fault.empty()) result.output = settings.out->pathOf(name);
  }
}

void run(InputMessage& input, const JobSettings& settings, MessageResult& result) {
  if (input.bytes == nullptr && input.error.empty()) {
    input.bytes = Buffer::readFile(input.file->path, input.error);
  }
  if (input.bytes == nullptr) {
    result.error = input.error;
    return;
  }
  result.bytes = input.bytes->size();
  const std::unique_ptr<Message> message = Message::parse(input.bytes);
  result.ran = true;
  result.id = message->id();
  result.envelope = chooseEnvelope(*message, settings.from, settings.recipients);
  message->setEnvelope(result.envelope.envelope);
  result.defects.assign(message->defects().begin(), message->defects().end());
  act(*message, input, settings, result);
  noteRecipients(*message, result);
  compareResult(*message, settings, result);
  writeResult(*message, std::move(input.bytes), settings, result);
}

}  // namespace

MessageResult runJob(InputMessage input, const JobSettings& settings) {
  MessageResult result;
  result.file = input.file;
  try {
    result.name = nameOf(input);
    result.number = input.number;
    result.separator = std::move(input.separator);
    run(input, settings, result);
  } catch (const std::exception& fault) {
    result.error = fault.what();
  }
  return result;
}

bool readAddresses(const std::optional<std::string>& from,
                   const std::vector<std::string>& recipients, JobSettings& settings) {
  if (from) {
    settings.from = plainAddress(*from);
    if (!settings.from) {
      complain("--from " + host::core::printable(*from) +
               ": no address (write: user@example.org, or <> for the null sender)");
      return false;
    }
  }
  for (const std::string& text : recipients) {
    const std::optional<std::string> address = plainAddress(text);
    if (!address || address->empty()) {
      complain("--rcpt " + host::core::printable(text) + ": no address (write: user@example.org)");
      return false;
    }
    // Twice the same recipient would get the mail twice.
    std::vector<std::string>& known = settings.recipients;
    if (std::find(known.begin(), known.end(), *address) == known.end()) known.push_back(*address);
  }
  return true;
}

std::string hostName() {
  std::array<char, 256> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0) return {};
  return name.data();
}

}  // namespace gateway::cli
