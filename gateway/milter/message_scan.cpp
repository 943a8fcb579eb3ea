#include "gateway/milter/message_scan.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "gateway/milter/message_log.h"
#include "host/core/guard.h"
#include "host/delivery/adapter_error.h"

namespace gateway::milter {
namespace {

using host::delivery::ReprocessTrust;
using host::message::DefectKind;
using host::message::Message;

host::message::Limits scannerLimits(const MessageLimits& limits) {
  return {
      .maxDepth = limits.depth, .maxParts = limits.parts, .maxHeaderFields = limits.headerFields};
}

/// A defect that says that something in the message was not looked at. A list of defects that was
/// cut off may hide one.
bool hidesContent(const host::message::Defect& defect) {
  switch (defect.kind) {
    case DefectKind::TooDeep:
    case DefectKind::TooManyParts:
    case DefectKind::TooManyHeaderFields:
    case DefectKind::TooManyDefects:
    case DefectKind::EncodedMessage:
    // Whoever decodes it first sees other headers and other parts than it shows as it stands.
    case DefectKind::EncodedMultipart:
    case DefectKind::UnreadParts:
      return true;
    case DefectKind::NoHeader:
    case DefectKind::NamelessHeaderLine:
    case DefectKind::MissingBlankLine:
    case DefectKind::MissingBoundary:
    case DefectKind::MissingParts:
    case DefectKind::UnclosedMultipart:
    case DefectKind::BareCr:
      break;
  }
  return false;
}

std::string failedAction(const engine::Outcome& outcome) {
  for (const engine::RuleReport& rule : outcome.rules) {
    if (rule.failureAccepted) continue;
    if (std::string what = engine::whatFailed(rule); !what.empty()) return what;
  }
  return "the run failed";
}

}  // namespace

MessageScan::MessageScan(const Gateway& gateway, CollectedMessage& collected, Origin origin)
    : gateway_(gateway),
      collected_(collected),
      origin_(std::move(origin)),
      started_(std::chrono::steady_clock::now()),
      adapter_(gateway.state, &gateway.delivery, &gateway.log),
      adapterRun_(adapter_, started_ + std::chrono::seconds(gateway.settings.deadlineSeconds),
                  gateway.delivery.timeouts.breakOff),
      answer_(Answer::tempFail(origin_.queueId)) {}

void MessageScan::run() {
  try {
    runGuarded();
  } catch (const std::exception& fault) {
    failFor(std::string("exception: ") + fault.what());
  } catch (...) {
    failFor("exception");
  }
}

void MessageScan::runGuarded() {
  bytes_ = collected_.size();
  if (!collected_.excess().empty()) return refuseBeyondLimits(collected_.excess());
  parse();
  if (message_ == nullptr) return failFor(collected_.fault());
  const auto defect = std::find_if(message_->defects().begin(), message_->defects().end(),
                                   [](const auto& each) { return hidesContent(each); });
  if (defect != message_->defects().end()) return refuseBeyondLimits(defect->text);
  std::string fault;
  const std::shared_ptr<const policy::Snapshot> policy = gateway_.policy.forMessage(fault);
  if (policy == nullptr) return failFor(fault);
  const bool fromUs =
      !origin_.listener.empty() && origin_.listener == gateway_.settings.reinjectionListener;
  outcome_ = engine::runMessage(*message_, *policy,
                                {.adapter = adapter_,
                                 .adapterRun = &adapterRun_,
                                 .log = &gateway_.log,
                                 .logLevel = 1,
                                 .hostName = gateway_.hostName,
                                 .trust = fromUs ? ReprocessTrust::Sealed : ReprocessTrust::Nobody,
                                 .sealKeys = &gateway_.keys});
  if (outcome_.reprocessing.astray && gateway_.strays != nullptr) {
    gateway_.strays->note(origin_.listener, gateway_.settings.reinjectionListener, gateway_.log);
  }
  judge();
}

void MessageScan::parse() {
  std::shared_ptr<const host::message::Buffer> bytes = collected_.takeBytes();
  if (bytes == nullptr) return;
  std::unique_ptr<Message> message =
      Message::parse(std::move(bytes), scannerLimits(gateway_.settings.limits));
  message->setEnvelope(collected_.envelope());
  message_ = std::move(message);
}

void MessageScan::refuseBeyondLimits(const std::string& what) {
  failure_ = what;
  answer_ = gateway_.settings.beyondLimits == Answer::Kind::Reject
                ? Answer::reject("The message is not accepted: " + what)
                : Answer::tempFail(origin_.queueId, "The message cannot be processed: " + what);
}

void MessageScan::judge() {
  switch (outcome_.verdict) {
    case engine::Verdict::Disposed:
      answer_ = Answer::discard();
      return;
    case engine::Verdict::Rejected:
      answer_ = Answer::reject(outcome_.verdictText);
      return;
    case engine::Verdict::TempFailed:
      answer_ = Answer::tempFail(origin_.queueId, outcome_.verdictText);
      return;
    case engine::Verdict::Failed:
      return failFor(outcome_.failure.empty() ? failedAction(outcome_) : outcome_.failure);
    case engine::Verdict::Unchanged:
    case engine::Verdict::Changed:
      break;
  }
  std::optional<ChangeSet> changes = changesOf(*message_, collected_.envelope());
  if (!changes) return failFor("the changed header cannot be told to the mail system");
  changes_ = std::move(*changes);
  answer_ = Answer::goOn();
}

void MessageScan::failFor(std::string why) {
  changes_ = {};
  failure_ = std::move(why);
  answer_ = Answer::tempFail(origin_.queueId);
}

void MessageScan::failTelling() {
  if (answer_.kind == Answer::Kind::TempFail) return;
  failFor("the mail system did not take the answer");
}

void MessageScan::settle() {
  host::core::guardedVoid([this] {
    settleEffects();
    const auto took = std::chrono::steady_clock::now() - started_;
    if (gateway_.metrics != nullptr) gateway_.metrics->count(answer_, outcome_, took);
    log(took);
  });
}

void MessageScan::settleEffects() {
  const std::optional<host::store::Digest> message = adapter_.leaveUnanswered();
  // The sender tries again, and must find what was done.
  if (!message || answer_.kind == Answer::Kind::TempFail) return;
  if (gateway_.answers != nullptr) {
    marked_ = message;
    if (gateway_.answers->begin(*message)) {
      gateway_.log.write(
          1,
          "Message %s is possibly doubled: it came before, and it is not known whether "
          "the mail system read the answer.",
          message_->id());
    } else if (gateway_.answers->wasAnswered(*message)) {
      gateway_.log.write(1,
                         "Message %s is possibly doubled: it came before and was answered, so "
                         "somebody behind this "
                         "gateway refused it, or it was sent twice.",
                         message_->id());
    }
  }
  std::string fault;
  if (gateway_.state.answer({*message}, fault) != host::delivery::AdapterError::None) {
    gateway_.log.write(1, "effects of %s are not settled: %s", origin_.queueId.c_str(),
                       fault.c_str());
  }
}

void MessageScan::log(std::chrono::steady_clock::duration took) const {
  MessageRecord record{origin_, collected_, outcome_, changes_, answer_, failure_};
  record.id = message_ == nullptr ? "" : message_->id();
  record.bytes = bytes_;
  record.milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(took).count();
  for (const ActionLine& line : actionLines(record)) {
    gateway_.log.write(line.level, "%s", line.text.c_str());
  }
  for (const std::string& line : acceptedLines(record)) {
    gateway_.log.write(1, "%s", line.c_str());
  }
  const int level = answer_.kind == Answer::Kind::TempFail ? 1 : 2;
  gateway_.log.write(level, "%s", messageLine(record).c_str());
}

}  // namespace gateway::milter
