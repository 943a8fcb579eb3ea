#include "gateway/engine/engine.h"

#include <algorithm>
#include <ctime>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "gateway/engine/match.h"
#include "gateway/engine/records.h"
#include "gateway/engine/tokens.h"
#include "gateway/scan/message_facts.h"
#include "host/delivery/reprocess_fields.h"
#include "host/message/checkpoint.h"
#include "library/framework/kavi_action.h"
#include "library/platform/msgu.h"
#include "library/tokens/action_utils.h"

namespace gateway::engine {
namespace {

using host::delivery::AdapterError;
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

/// For adapters that need to be told nothing.
class Untold final : public host::delivery::MessageRun {
 public:
  void setPasses(unsigned int) override {}
  AdapterError beginMessage(const OvMsgMailMessage&, std::string_view, const Tokens&) override {
    return AdapterError::None;
  }
  AdapterError beginAction(unsigned int, unsigned int, std::string_view) override {
    return AdapterError::None;
  }
  AdapterError finalAnswer(host::delivery::FinalAnswer) override { return AdapterError::None; }
  const std::string& lastFault() const override { return none_; }

 private:
  std::string none_;
};

std::string textOf(AdapterError error) {
  return host::delivery::adapterErrorText(static_cast<unsigned int>(error));
}

class Run {
 public:
  Run(host::message::Message& message, const Snapshot& policy, const Surroundings& surroundings,
      Outcome& outcome)
      : message_(message),
        policy_(policy),
        surroundings_(surroundings),
        outcome_(outcome),
        adapter_(surroundings.adapter, surroundings.isRehearsal ? &message : nullptr,
                 surroundings.adapterRun),
        adapterRun_(surroundings.adapterRun != nullptr ? *surroundings.adapterRun : untold_),
        records_(policy) {}

  void run() {
    admit();
    runRules();
    outcome_.verdict = verdict();
  }

  void expand(const std::string& text, Expansion& expansion) {
    admit();
    const scan::MessageFacts facts(message_);
    const std::vector<Match> matched = match(facts);
    fillMessageTokens(tokens_, message_, facts, surroundings_.protocol, surroundings_.hostName);
    for (std::size_t i = 0; i < matched.size() && expansion.rule == 0; ++i) {
      if (outcome_.rules[i].skipped) continue;
      prepareRule(matched[i]);
      expansion.rule = matched[i].rule->id;
    }
    if (!ActionUtils::replaceTokens(tokens_, text, message_, expansion.text)) {
      expansion.failure = "the tokens cannot be replaced";
    }
  }

 private:
  void admit() {
    const AdapterError error =
        host::delivery::admitReprocessing(message_, surroundings_.trust, surroundings_.sealKeys,
                                          std::time(nullptr), outcome_.reprocessing);
    if (error != AdapterError::None) {
      std::string why = "the seal of the reprocessing fields cannot be checked: " + textOf(error);
      if (error == AdapterError::KeyUnavailable) why += " from " + surroundings_.sealKeys->path();
      throw std::runtime_error(why);
    }
    if (outcome_.reprocessing.honoured) tokens_.set(Kavi::ScanToken::Rescanned, "yes");
  }

  bool isSkipped(const Snapshot::Rule& rule) const {
    const std::vector<unsigned int>& ids = outcome_.reprocessing.rules;
    return std::find(ids.begin(), ids.end(), rule.id) != ids.end();
  }

  void runRules() {
    const scan::MessageFacts facts(message_);
    const std::vector<Match> matched = match(facts);
    if (matched.empty()) return;
    size_ = message_.renderedSize();
    fillMessageTokens(tokens_, message_, facts, surroundings_.protocol, surroundings_.hostName);
    adapterRun_.setPasses(outcome_.reprocessing.passes);
    const AdapterError begun =
        adapterRun_.beginMessage(message_, message_.receivedBytes(), tokens_);
    if (begun != AdapterError::None) throw std::runtime_error(textOf(begun));
    for (std::size_t i = 0; i < matched.size(); ++i) {
      RuleReport& report = outcome_.rules[i];
      report.reached = !ended() && !report.skipped;
      if (report.reached) runRule(matched[i], report);
    }
  }

  /// All rules see the message as it came, so that no rule depends on what another one changed.
  std::vector<Match> match(const scan::MessageFacts& facts) {
    std::vector<Match> matched;
    std::vector<std::size_t> marked;
    for (const Snapshot::Rule& rule : policy_.rules()) {
      if (!rule.matcher.matches(facts, marked)) continue;
      matched.push_back(describeMatch(rule, facts, marked));
      RuleReport& report = outcome_.rules.emplace_back();
      report.id = rule.id;
      report.name = rule.name;
      report.skipped = isSkipped(rule);
      report.attachments = matched.back().attachments;
    }
    return matched;
  }

  /// The objects of a rule's actions, once all of them have filled in the token map.
  std::vector<std::unique_ptr<KaviAction>> prepareRule(const Match& match) {
    const Snapshot::Rule& rule = *match.rule;
    fillRuleTokens(tokens_, match);
    records_.addFor(rule);
    std::vector<std::unique_ptr<KaviAction>> actions;
    for (const Snapshot::Action& action : rule.actions) {
      actions.push_back(action.spec->build(action.setting));
    }
    for (const std::unique_ptr<KaviAction>& action : actions) {
      if (action != nullptr) action->fillInTokenMap(tokens_, records_.manager());
    }
    return actions;
  }

  /// What the message stands for besides its bytes, and how to bring all of it back.
  struct Before {
    Before(host::message::Message& message, const Tokens& present, std::size_t bytes)
        : checkpoint(message), tokens(present), size(bytes) {}
    host::message::Checkpoint checkpoint;
    Tokens tokens;
    std::size_t size;
  };

  bool ended() const { return outcome_.disposed || outcome_.verdictRule != 0 || failed_; }

  void runRule(const Match& match, RuleReport& report) {
    const Snapshot::Rule& rule = *match.rule;
    if (rule.onFailure == policy::OnFailure::Accept && !rule.actions.empty()) {
      Before before(message_, tokens_, size_);
      report.failure = failureOf([&] { runActions(match, report); });
      failed_ = failed_ || !report.failure.empty();
      if (failed_ && !unsettled_) return acceptFailure(before, report);
    } else {
      runActions(match, report);
    }
    if (!failed_ && rule.verdict.kind != policy::RuleVerdict::Kind::None) {
      outcome_.verdictRule = rule.id;
      outcome_.verdictText = rule.verdict.text;
      ruleVerdict_ = rule.verdict.kind == policy::RuleVerdict::Kind::Reject ? Verdict::Rejected
                                                                            : Verdict::TempFailed;
    }
  }

  void acceptFailure(Before& before, RuleReport& report) {
    before.checkpoint.restore();
    tokens_ = std::move(before.tokens);
    size_ = before.size;
    // No rule begins once the message is disposed of.
    outcome_.disposed = false;
    failed_ = false;
    report.failureAccepted = true;
  }

  void runActions(const Match& match, RuleReport& report) {
    const std::vector<std::unique_ptr<KaviAction>> actions = prepareRule(match);
    for (std::size_t i = 0; i < actions.size() && !failed_; ++i) {
      runAction(*match.rule, i, actions[i].get(), report.actions.emplace_back());
    }
  }

  /// When the time is up or the adapter cannot begin, that is no failure of the action's own.
  void beginAction(const Snapshot::Rule& rule, std::size_t position) {
    unsettled_ = true;
    const AdapterError begun = adapterRun_.beginAction(rule.id, static_cast<unsigned int>(position),
                                                       rule.actions[position].setting);
    if (begun != AdapterError::None) throw std::runtime_error(textOf(begun));
    unsettled_ = false;
  }

  /// Whether something that was asked for may have come about, or may still do so: another attempt
  /// is at it, or nobody can tell, as when an exception ended it midway.
  bool isOpenSince(std::size_t first) const {
    const std::vector<HandOver>& handOvers = adapter_.handOvers();
    return std::any_of(handOvers.begin() + static_cast<std::ptrdiff_t>(first), handOvers.end(),
                       [](const HandOver& handOver) {
                         const auto error = static_cast<AdapterError>(handOver.error);
                         return error == AdapterError::UnderWay ||
                                error == AdapterError::Uncertain ||
                                error == AdapterError::BrokenOff ||
                                error == AdapterError::OutOfMemory ||
                                error == AdapterError::Internal;
                       });
  }

  void runAction(const Snapshot::Rule& rule, std::size_t position, KaviAction* action,
                 ActionReport& report) {
    const Snapshot::Action& entry = rule.actions[position];
    report.spec = entry.spec;
    report.setting = entry.setting;
    report.value = valueOf(entry);
    report.bytesBefore = size_;
    const std::size_t handOversBefore = adapter_.handOvers().size();
    const std::size_t changesBefore = message_.changes().size();
    const Lines lines(surroundings_);
    if (action == nullptr) {
      report.failure = "refused its setting";
    } else {
      report.failure = failureOf([&] {
        records_.renewFor(entry);
        beginAction(rule, position);
        take(*action, report);
      });
    }
    if (!report.failure.empty()) report.result = false;
    if (!report.result && isOpenSince(handOversBefore)) unsettled_ = true;
    if (!report.result && report.failure.empty()) report.failure = adapterRun_.lastFault();
    lines.moveTo(report.log);
    if (!report.result && report.failure.empty() && report.log.empty()) {
      report.failure = std::as_const(message_).firstEntity() == nullptr
                           ? "the message has no header"
                           : "answered failure";
    }
    const std::vector<HandOver>& handOvers = adapter_.handOvers();
    report.handOvers.assign(handOvers.begin() + static_cast<std::ptrdiff_t>(handOversBefore),
                            handOvers.end());
    if (OvMsgEntity* root = message_.firstEntity(); root != nullptr) {
      msgu::getHeader(root, host::delivery::kReprocessRules, report.rulesLeft);
    }
    const auto changes = message_.changes();
    report.changes.assign(changes.begin() + static_cast<std::ptrdiff_t>(changesBefore),
                          changes.end());
    // Walks the whole tree: only when there was an edit.
    if (!report.changes.empty()) size_ = message_.renderedSize();
    report.bytesAfter = size_;
    report.disposed = report.flag && report.result;
    outcome_.disposed = outcome_.disposed || report.disposed;
    failed_ = failed_ || !report.result;
    if (report.result) noteAction(tokens_, entry);
  }

  void take(KaviAction& action, ActionReport& report) {
    const host::message::Message* original =
        action.requiresOriginalMsg() ? &std::as_const(message_).received() : nullptr;
    std::optional<host::trap::TrapRecorder> traps;
    if (surroundings_.isRehearsal) traps.emplace();
    report.result =
        action.takeAction(&message_, original, report.flag, tokens_, adapter_, records_.manager());
    if (traps) report.traps = traps->traps();
  }

  Verdict verdict() {
    if (failed_) return Verdict::Failed;
    if (outcome_.verdictRule != 0) return ruleVerdict_;
    if (outcome_.disposed) return Verdict::Disposed;
    // It goes on to somebody else, who must not see how it was scanned.
    host::delivery::removeReprocessing(message_);
    return message_.changed() ? Verdict::Changed : Verdict::Unchanged;
  }

  host::message::Message& message_;
  const Snapshot& policy_;
  const Surroundings& surroundings_;
  Outcome& outcome_;
  WatchedAdapter adapter_;
  Untold untold_;
  host::delivery::MessageRun& adapterRun_;
  Tokens tokens_;
  Records records_;
  std::size_t size_ = 0;  ///< of the message as it stands
  bool failed_ = false;
  bool unsettled_ = false;  ///< what failed may still come about, or is no rule's: none accepts it
  Verdict ruleVerdict_ = Verdict::Rejected;  ///< once there is a rule whose verdict it is
};

}  // namespace

Outcome runMessage(host::message::Message& message, const policy::Snapshot& policy,
                   const Surroundings& surroundings) {
  Outcome outcome;
  outcome.failure = failureOf([&] { Run(message, policy, surroundings, outcome).run(); });
  if (!outcome.failure.empty()) outcome.verdict = Verdict::Failed;
  return outcome;
}

std::vector<std::string> lastingEffects(const RuleReport& rule) {
  std::vector<std::string> names;
  for (const ActionReport& action : rule.actions) {
    const bool handedOver =
        std::any_of(action.handOvers.begin(), action.handOvers.end(),
                    [](const HandOver& handOver) { return handOver.error == 0; });
    const bool acted = action.result && !action.spec->changesMessage && !action.spec->doesNothing;
    if (handedOver || acted) names.emplace_back(action.spec->name);
  }
  return names;
}

std::string whatFailed(const RuleReport& rule) {
  for (const ActionReport& action : rule.actions) {
    if (!action.result) {
      return "action " + std::string(action.spec->name) + " of rule " + std::to_string(rule.id);
    }
  }
  return rule.failure.empty() ? std::string()
                              : "rule " + std::to_string(rule.id) + ": " + rule.failure;
}

host::delivery::FinalAnswer answerFor(Verdict verdict) {
  using host::delivery::FinalAnswer;
  switch (verdict) {
    case Verdict::Unchanged:
    case Verdict::Changed:
      return FinalAnswer::Accepted;
    case Verdict::Disposed:
      return FinalAnswer::Discarded;
    case Verdict::Rejected:
      return FinalAnswer::Rejected;
    case Verdict::TempFailed:
    case Verdict::Failed:
      break;
  }
  return FinalAnswer::TemporaryFailure;
}

Expansion expandText(const std::string& text, host::message::Message& message,
                     const policy::Snapshot& policy, const Surroundings& surroundings) {
  Expansion expansion;
  Outcome outcome;
  const std::string failure =
      failureOf([&] { Run(message, policy, surroundings, outcome).expand(text, expansion); });
  if (!failure.empty()) expansion.failure = failure;
  return expansion;
}

}  // namespace gateway::engine
