// Rules that let a message go on when one of their actions fails, and rules with a verdict.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/engine/engine.h"
#include "tests/unit/gateway/handoff_refusing_adapter.h"
#include "tests/unit/gateway/messages.h"
#include "tests/unit/gateway/policy_texts.h"

namespace gateway::engine {
namespace {

using host::delivery::AdapterError;
using host::delivery::FinalAnswer;
using host::delivery::ReprocessTrust;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kObjects[] =
    "quarantine_areas: [{name: virus}]\n"
    "archive_areas: [{name: journal}]\n"
    "stamps: [{name: legal, text: 'Stamped %ACTION%'}]\n";

/// Actions that succeed, one of each kind that changes something.
const char* const kChanges[] = {
    "{x_header: 'X-Change: one'}", "{tag_subject: '[TAG] '}",        "{stamp: legal}",
    "{delete_attachments: all}",   "{delete_attachments: matching}", "{bcc: [added@x.example]}"};
/// Actions that take the message, or a copy of it.
const char* const kTakers[] = {"{archive: journal}", "{quarantine: virus}",
                               "{readdress: [r@x.example]}", "{postpone: '08:30'}", "delete"};
/// This one fails.
constexpr char kFails[] = "{handoff: 'h.example:25'}";

std::string ruleText(int id, const std::string& actions, const std::string& options = {}) {
  return "- {id: " + std::to_string(id) +
         ", when: {any: [{attachment_name: '*.exe'}, always]}, actions: [" + actions + "]" +
         options + "}\n";
}

struct Seen {
  Outcome outcome;
  std::string text;  ///< of the message as it stands, with its random boundaries masked
  std::vector<std::string> recipients;
  std::vector<std::string> operations;
};

Seen run(const std::string& rules, ReprocessTrust trust = ReprocessTrust::Nobody,
         std::unique_ptr<host::message::Message> message = withAttachments()) {
  message->setEnvelope({"s@x.example", {"a@x.example", "b@x.example"}, {}});
  const auto policy =
      policy::snapshotOf(kObjects + ("rules: " + (rules.starts_with("[") ? rules : "\n" + rules)));
  HandoffRefusingAdapter adapter;
  Seen seen;
  seen.outcome =
      runMessage(*message, *policy, {.adapter = adapter, .hostName = "h", .trust = trust});
  seen.text = std::regex_replace(message->toString(), std::regex("=_[-0-9A-Za-z]+"), "=_");
  seen.recipients = message->envelope().recipients;
  seen.operations = adapter.dry.operations();
  return seen;
}

TEST(OnFailureAccept, LeavesTheMessageAsItWasBetweenAnyTwoChanges) {
  for (const char* before : kChanges) {
    for (const char* inside : kChanges) {
      for (const char* after : kChanges) {
        const std::string first = ruleText(1, before);
        const std::string last = ruleText(3, after);
        const Seen never = run(first + last);
        const Seen seen =
            run(first + ruleText(2, std::string(inside) + ", " + kFails, ", on_failure: accept") +
                last);
        ASSERT_EQ(seen.text, never.text) << before << inside << after;
        ASSERT_EQ(seen.recipients, never.recipients) << before << inside << after;
        ASSERT_EQ(seen.outcome.verdict, never.outcome.verdict) << before << inside << after;
        ASSERT_TRUE(seen.outcome.rules.at(1).failureAccepted);
        ASSERT_TRUE(seen.outcome.rules.at(2).reached);
      }
    }
  }
}

TEST(OnFailureAccept, TakesBackAllChangesOfARuleAtOnce) {
  std::string all;
  for (const char* change : kChanges) all += std::string(change) + ", ";
  const Seen never = run("[]\n");
  const Seen seen = run(ruleText(1, all + kFails, ", on_failure: accept"));
  EXPECT_EQ(seen.text, never.text);
  EXPECT_EQ(seen.recipients, never.recipients);
  EXPECT_EQ(seen.outcome.verdict, Verdict::Unchanged);
  EXPECT_EQ(seen.outcome.rules.at(0).actions.size(), std::size(kChanges) + 1)
      << "the report says what ran";
}

TEST(OnFailureAccept, NeverDisposesOfTheMessage) {
  for (const char* taker : kTakers) {
    const std::string rule = ruleText(1, std::string(taker) + ", " + kFails);
    EXPECT_EQ(run(rule).outcome.verdict, Verdict::Failed) << taker;
    const Seen seen = run(ruleText(1, std::string("{x_header: 'X-A: b'}, ") + taker + ", " + kFails,
                                   ", on_failure: accept") +
                          ruleText(2, "{x_header: 'X-Late: yes'}"));
    const Seen never = run(ruleText(2, "{x_header: 'X-Late: yes'}"));
    EXPECT_EQ(seen.outcome.verdict, Verdict::Changed) << taker;
    EXPECT_FALSE(seen.outcome.disposed) << taker;
    EXPECT_EQ(seen.text, never.text) << taker;
    EXPECT_EQ(seen.recipients, never.recipients) << taker;
    EXPECT_EQ(seen.operations.size(), 1u) << "what was done is not taken back";
    EXPECT_EQ(answerFor(seen.outcome.verdict), FinalAnswer::Accepted);
  }
}

TEST(OnFailureAccept, SaysWhatFailedAndWhatStays) {
  const Seen seen = run(ruleText(
      7, std::string("{x_header: 'X-A: b'}, {archive: journal}, {quarantine: virus}, ") + kFails,
      ", on_failure: accept"));
  const RuleReport& rule = seen.outcome.rules.at(0);
  EXPECT_TRUE(rule.failureAccepted);
  EXPECT_EQ(whatFailed(rule), "action handoff of rule 7");
  EXPECT_THAT(lastingEffects(rule), ElementsAre("archive", "quarantine"));
  EXPECT_EQ(seen.outcome.failure, "");
}

TEST(OnFailureAccept, EndsTheRuleThatFailed) {
  const Seen seen = run(ruleText(1, std::string(kFails) + ", delete", ", on_failure: accept"));
  EXPECT_THAT(seen.outcome.rules.at(0).actions, testing::SizeIs(1));
  EXPECT_THAT(seen.operations, IsEmpty());
}

TEST(OnFailureAccept, CountsForItsOwnRuleOnly) {
  const std::string accepting = ruleText(1, "{x_header: 'X-A: b'}", ", on_failure: accept");
  const Seen seen = run(accepting + ruleText(2, kFails) + ruleText(3, "delete"));
  EXPECT_EQ(seen.outcome.verdict, Verdict::Failed);
  EXPECT_FALSE(seen.outcome.rules.at(0).failureAccepted);
  EXPECT_EQ(run(accepting).outcome.verdict, Verdict::Changed) << "nothing failed";
}

TEST(OnFailureAccept, LeavesReprocessingFieldsAsTheyWere) {
  const std::string header =
      "Subject: x\nX-kavi-reprocess-rules: 12\nX-kavi-reprocess-type: quarantine\n";
  const Seen seen = run(
      ruleText(1, std::string("{readdress: [r@x.example]}, ") + kFails, ", on_failure: accept") +
          ruleText(2, "{quarantine: virus}"),
      ReprocessTrust::Assumed, withHeader(header));
  const ActionReport& quarantine = seen.outcome.rules.at(1).actions.at(0);
  ASSERT_FALSE(quarantine.handOvers.empty());
  EXPECT_EQ(quarantine.handOvers[0].rules, "12 2") << "not of rule 1, whose doing was taken back";
}

TEST(OnFailureAccept, LeavesTheValuesOfTokensAsTheyWere) {
  const Seen seen =
      run(ruleText(1, std::string("{archive: journal}, ") + kFails, ", on_failure: accept") +
              ruleText(2, "{x_header: 'X-A: b'}") + ruleText(3, "{tag_subject: '%TOTALACTION% '}"),
          ReprocessTrust::Nobody, withHeader("Subject: x\n"));
  const Seen never =
      run(ruleText(2, "{x_header: 'X-A: b'}") + ruleText(3, "{tag_subject: '%TOTALACTION% '}"),
          ReprocessTrust::Nobody, withHeader("Subject: x\n"));
  EXPECT_EQ(seen.text, never.text);
}

// --- Failures that no rule accepts ---

/// Lets the actions of a rule begin up to a position.
class StoppingRun final : public host::delivery::MessageRun {
 public:
  StoppingRun(unsigned int stop, AdapterError how) : stop_(stop), how_(how) {}
  void setPasses(unsigned int) override {}
  AdapterError beginMessage(const OvMsgMailMessage&, std::string_view,
                            const Kavi::TokenMap<Kavi::ScanToken>&) override {
    return AdapterError::None;
  }
  AdapterError beginAction(unsigned int, unsigned int position, std::string_view) override {
    if (position < stop_) return AdapterError::None;
    if (how_ == AdapterError::None) throw std::bad_alloc();
    return how_;
  }
  AdapterError finalAnswer(FinalAnswer) override { return AdapterError::None; }
  const std::string& lastFault() const override { return none_; }

 private:
  unsigned int stop_;
  AdapterError how_;
  std::string none_;
};

/// Runs a rule that accepts failures and one behind it. \p run may be null.
Outcome runAccepting(AdapterError refusal, host::delivery::MessageRun* run) {
  const auto message = withHeader("Subject: x\n");
  message->setEnvelope({"s@x.example", {"a@x.example"}, {}});
  const auto policy =
      policy::snapshotOf(kObjects +
                         ("rules:\n" + ruleText(1, std::string("{x_header: 'X-A: b'}, ") + kFails,
                                                ", on_failure: accept")) +
                         ruleText(2, "delete"));
  HandoffRefusingAdapter adapter;
  adapter.refusal = refusal;
  return runMessage(*message, *policy, {.adapter = adapter, .adapterRun = run, .hostName = "h"});
}

void expectNotAccepted(const Outcome& outcome) {
  EXPECT_EQ(outcome.verdict, Verdict::Failed);
  EXPECT_EQ(answerFor(outcome.verdict), FinalAnswer::TemporaryFailure);
  EXPECT_FALSE(outcome.rules.at(0).failureAccepted);
  EXPECT_EQ(whatFailed(outcome.rules.at(0)), "action handoff of rule 1");
  EXPECT_FALSE(outcome.rules.at(1).reached);
}

TEST(OnFailureAccept, DoesNotHoldForWhatMayComeAbout) {
  for (const AdapterError unknown : {AdapterError::UnderWay, AdapterError::Uncertain,
                                     AdapterError::OutOfMemory, AdapterError::Internal}) {
    expectNotAccepted(runAccepting(unknown, nullptr));
  }
}

TEST(OnFailureAccept, HoldsForWhatIsKnownToHaveFailed) {
  for (const AdapterError known : {AdapterError::IndexBusy, AdapterError::ConnectionRefused,
                                   AdapterError::TimedOut, AdapterError::RefusedForGood}) {
    StoppingRun run(2, AdapterError::None);
    const Outcome outcome = runAccepting(known, &run);
    EXPECT_EQ(outcome.verdict, Verdict::Disposed) << "by the rule behind it";
    EXPECT_TRUE(outcome.rules.at(0).failureAccepted);
  }
}

TEST(OnFailureAccept, DoesNotHoldForAnActionThatCannotBegin) {
  for (const AdapterError how :
       {AdapterError::TimedOut, AdapterError::OutOfMemory, AdapterError::None /* it throws */}) {
    StoppingRun run(1, how);
    expectNotAccepted(runAccepting(AdapterError::IndexBusy, &run));
  }
}

// --- Verdicts ---

TEST(RuleVerdict, EndsTheRunBehindTheActionsOfItsRule) {
  for (const auto& [key, verdict, answer] :
       {std::tuple{"reject", Verdict::Rejected, FinalAnswer::Rejected},
        {"tempfail", Verdict::TempFailed, FinalAnswer::TemporaryFailure}}) {
    const Seen seen = run(
        ruleText(1, "{x_header: 'X-A: b'}") +
        ruleText(2, "{archive: journal}", std::string(", verdict: {") + key + ": Not 100% here}") +
        ruleText(3, "delete"));
    EXPECT_EQ(seen.outcome.verdict, verdict);
    EXPECT_EQ(seen.outcome.verdictRule, 2u);
    EXPECT_EQ(seen.outcome.verdictText, "Not 100% here");
    EXPECT_THAT(seen.operations, ElementsAre("archive"));
    EXPECT_TRUE(seen.outcome.rules.at(1).reached);
    EXPECT_FALSE(seen.outcome.rules.at(2).reached);
    EXPECT_EQ(answerFor(seen.outcome.verdict), answer);
    EXPECT_FALSE(goesOn(seen.outcome.verdict));
  }
}

TEST(RuleVerdict, NeedsNoActions) {
  const Seen seen = run(ruleText(1, "", ", verdict: {reject: No}"));
  EXPECT_EQ(seen.outcome.verdict, Verdict::Rejected);
  EXPECT_EQ(seen.text, run("[]\n").text);
}

TEST(RuleVerdict, HoldsThoughAnActionTookTheMessage) {
  const Seen seen = run(ruleText(1, "{quarantine: virus}", ", verdict: {reject: No}"));
  EXPECT_EQ(seen.outcome.verdict, Verdict::Rejected);
  EXPECT_TRUE(seen.outcome.disposed);
}

TEST(RuleVerdict, IsNotReachedBehindARuleThatTookTheMessage) {
  const Seen seen = run(ruleText(1, "delete") + ruleText(2, "", ", verdict: {reject: No}"));
  EXPECT_EQ(seen.outcome.verdict, Verdict::Disposed);
  EXPECT_EQ(seen.outcome.verdictRule, 0u);
}

TEST(RuleVerdict, IsNoneWhenAnActionFailed) {
  const Seen seen = run(ruleText(1, kFails, ", verdict: {reject: No}"));
  EXPECT_EQ(seen.outcome.verdict, Verdict::Failed);
  EXPECT_EQ(seen.outcome.verdictRule, 0u);
}

TEST(RuleVerdict, IsNoneWhenAFailureWasAccepted) {
  const Seen seen = run(ruleText(1, kFails, ", verdict: {reject: No}, on_failure: accept") +
                        ruleText(2, "{x_header: 'X-A: b'}"));
  EXPECT_EQ(seen.outcome.verdict, Verdict::Changed);
  EXPECT_EQ(seen.outcome.verdictRule, 0u);
}

TEST(RuleVerdict, HoldsWithAcceptedFailuresWhenNothingFailed) {
  const Seen seen =
      run(ruleText(1, "{x_header: 'X-A: b'}", ", verdict: {reject: No}, on_failure: accept"));
  EXPECT_EQ(seen.outcome.verdict, Verdict::Rejected);
  EXPECT_FALSE(seen.outcome.rules.at(0).failureAccepted);
}

TEST(RuleVerdict, IsNoneForAMessageThatCameBackBecauseOfTheRule) {
  const Seen seen = run(ruleText(12, "", ", verdict: {reject: No}"), ReprocessTrust::Assumed,
                        withHeader("Subject: x\nX-kavi-reprocess-rules: 12\n"
                                   "X-kavi-reprocess-type: quarantine\n"));
  EXPECT_TRUE(seen.outcome.rules.at(0).skipped);
  EXPECT_TRUE(goesOn(seen.outcome.verdict));
}

}  // namespace
}  // namespace gateway::engine
