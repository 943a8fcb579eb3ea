#include "gateway/engine/engine.h"

#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "gateway/engine/records.h"
#include "gateway/engine/tokens.h"
#include "gateway/scan/message_facts.h"
#include "library/framework/kavi_action.h"

namespace gateway::engine {
namespace {

using policy::Snapshot;

/// Collects what the log gets while it lives, when there is a log.
class Lines {
 public:
  explicit Lines(const Surroundings& surroundings) {
    if (surroundings.log != nullptr) capture_.emplace(*surroundings.log, surroundings.logLevel);
  }
  void moveTo(std::vector<host::core::LogLine>& lines) const {
    if (capture_) lines.insert(lines.end(), capture_->lines().begin(), capture_->lines().end());
  }

 private:
  std::optional<host::core::LogCapture> capture_;
};

/// Runs \p body; what it throws becomes a text.
template <class Body>
std::string failureOf(Body&& body) {
  try {
    body();
    return {};
  } catch (const std::exception& fault) {
    return std::string("exception: ") + fault.what();
  } catch (...) {
    return "exception";
  }
}

class Run {
 public:
  Run(host::message::Message& message, const Snapshot& policy, const Surroundings& surroundings,
      Outcome& outcome)
      : message_(message),
        policy_(policy),
        surroundings_(surroundings),
        outcome_(outcome),
        records_(policy) {}

  void run() {
    const scan::MessageFacts facts(message_);
    const std::vector<const Snapshot::Rule*> matched = match(facts);
    if (matched.empty()) return;
    fillMessageTokens(tokens_, message_, facts, surroundings_.protocol, surroundings_.hostName);
    for (std::size_t i = 0; i < matched.size(); ++i) {
      RuleReport& report = outcome_.rules[i];
      report.reached = !outcome_.disposed && !failed_;
      if (report.reached) runRule(*matched[i], report);
    }
    outcome_.verdict = verdict();
  }

 private:
  /// All rules see the message as it came, so that no rule depends on what another one changed.
  std::vector<const Snapshot::Rule*> match(const scan::MessageFacts& facts) {
    std::vector<const Snapshot::Rule*> matched;
    std::vector<std::size_t> marked;
    for (const Snapshot::Rule& rule : policy_.rules()) {
      if (!rule.matcher.matches(facts, marked)) continue;
      matched.push_back(&rule);
      RuleReport& report = outcome_.rules.emplace_back();
      report.id = rule.id;
      report.name = rule.name;
      for (const std::size_t index : marked) {
        const scan::Attachment& attachment = facts.attachments()[index];
        report.attachments.push_back(attachment.fileName.empty() ? attachment.type
                                                                 : attachment.fileName);
      }
    }
    return matched;
  }

  void runRule(const Snapshot::Rule& rule, RuleReport& report) {
    fillRuleTokens(tokens_, rule, report.attachments);
    records_.addFor(rule);
    std::vector<std::unique_ptr<KaviAction>> actions;
    for (const Snapshot::Action& action : rule.actions) {
      actions.push_back(action.spec->build(action.setting));
    }
    for (const std::unique_ptr<KaviAction>& action : actions) {
      if (action != nullptr) action->fillInTokenMap(tokens_, records_.manager());
    }
    for (std::size_t i = 0; i < actions.size() && !failed_; ++i) {
      runAction(rule.actions[i], actions[i].get(), report.actions.emplace_back());
    }
  }

  void runAction(const Snapshot::Action& entry, KaviAction* action, ActionReport& report) {
    report.spec = entry.spec;
    report.setting = entry.setting;
    report.value = valueOf(entry);
    report.bytesBefore = message_.renderedSize();
    const std::size_t changesBefore = message_.changes().size();
    const Lines lines(surroundings_);
    if (action == nullptr) {
      report.failure = "refused its setting";
    } else {
      report.failure = failureOf([&] { take(*action, report); });
    }
    if (!report.failure.empty()) report.result = false;
    lines.moveTo(report.log);
    const auto changes = message_.changes();
    report.changes.assign(changes.begin() + static_cast<std::ptrdiff_t>(changesBefore),
                          changes.end());
    report.bytesAfter = message_.renderedSize();
    report.disposed = report.flag && report.result;
    outcome_.disposed = outcome_.disposed || report.disposed;
    failed_ = failed_ || !report.result;
    if (report.result) noteAction(tokens_, entry);
  }

  void take(KaviAction& action, ActionReport& report) {
    const host::message::Message* original =
        action.requiresOriginalMsg() ? &std::as_const(message_).received() : nullptr;
    report.result = action.takeAction(&message_, original, report.flag, tokens_,
                                      surroundings_.adapter, records_.manager());
  }

  Verdict verdict() const {
    if (failed_) return Verdict::Failed;
    if (outcome_.disposed) return Verdict::Disposed;
    return message_.changed() ? Verdict::Changed : Verdict::Unchanged;
  }

  host::message::Message& message_;
  const Snapshot& policy_;
  const Surroundings& surroundings_;
  Outcome& outcome_;
  Tokens tokens_;
  Records records_;
  bool failed_ = false;
};

}  // namespace

Outcome runMessage(host::message::Message& message, const policy::Snapshot& policy,
                   const Surroundings& surroundings) {
  Outcome outcome;
  outcome.failure = failureOf([&] { Run(message, policy, surroundings, outcome).run(); });
  if (!outcome.failure.empty()) outcome.verdict = Verdict::Failed;
  return outcome;
}

}  // namespace gateway::engine
