#include "gateway/engine/engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "gateway/cli/dry_adapter.h"
#include "gateway/engine/records.h"
#include "host/core/action_list.h"
#include "host/core/ini_settings.h"
#include "library/framework/init_action_lib.h"
#include "library/namedobj/quarantine_area.h"
#include "library/platform/msgu.h"
#include "tests/unit/gateway/messages.h"
#include "tests/unit/gateway/policy_texts.h"

namespace gateway::engine {
namespace {

using Kavi::ScanToken;
using policy::Snapshot;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// What happened, in order, on this thread.
thread_local std::vector<std::string> events;

/// An action that does what its setting says: words separated by blanks.
///   flag, clear   sets, clears the caller's flag     fail    answers false
///   throw         throws                             header  adds a header field
///   unbuilt       construct fails                    other   throws something that is no exception
class ScriptedAction final : public KaviAction {
 public:
  bool construct(const char* setting, unsigned int length) override {
    script_.assign(setting, length);
    return !has("unbuilt");
  }
  std::string serialize() override { return script_; }
  ActionType getType() const override { return KaviAction::VirusClean; }
  bool requiresOriginalMsg() override { return has("original"); }
  void fillInTokenMap(Kavi::TokenMap<ScanToken>& tokens, const NamedObjMgrForScanner&) override {
    events.push_back("fill " + script_ + " of rule " + tokens.valueOrEmpty(ScanToken::RuleId));
    if (has("badfill")) throw std::runtime_error("no tokens");
  }
  bool takeAction(OvMsgMailMessage* msg, const OvMsgMailMessage* original, bool& flag,
                  Kavi::TokenMap<ScanToken>& tokens, OvIsAdapter&,
                  const NamedObjMgrForScanner&) override {
    EXPECT_FALSE(flag) << "every action gets a fresh flag";
    EXPECT_EQ(runs_++, 0) << "every message gets its own objects";
    events.push_back("run " + script_);
    lastTokens = tokens;
    EXPECT_EQ(original != nullptr, has("original"));
    if (has("header")) msgu::setHeader(msgu::getRootEntity(msg), "X-Scripted", "1", nullptr);
    if (has("flag")) flag = true;
    if (has("clear")) flag = false;
    if (has("throw")) throw std::runtime_error("scripted fault");
    if (has("other")) throw 5;
    return !has("fail");
  }

  static Kavi::TokenMap<ScanToken> lastTokens;

 private:
  bool has(const std::string& word) const {
    return (" " + script_ + " ").find(" " + word + " ") != std::string::npos;
  }
  std::string script_;
  int runs_ = 0;
};

Kavi::TokenMap<ScanToken> ScriptedAction::lastTokens;

const policy::ActionSpec kScripted{
    .name = "scripted",
    .type = KaviAction::VirusClean,
    .disposes = false,
    .doesNothing = false,
    .changesMessage = true,
    .value = "WORDS",
    .example = "scripted: flag",
    .summary = "",
    .make = [] { return std::unique_ptr<KaviAction>(std::make_unique<ScriptedAction>()); },
    .encode = [](const policy::Node&, std::string&, const policy::FaultSink&) { return false; },
    .decode =
        [](const std::string& setting, std::string& value) {
          value = setting;
          return true;
        }};

/// A policy of rules 1, 2, … that always match, each with scripted actions.
std::shared_ptr<const Snapshot> scripted(const std::vector<std::vector<std::string>>& rules) {
  std::vector<Snapshot::Rule> compiled;
  for (const auto& scripts : rules) {
    std::vector<Snapshot::Action> actions;
    for (const std::string& script : scripts) actions.push_back({&kScripted, script});
    const auto id = static_cast<unsigned int>(compiled.size() + 1);
    compiled.push_back({id, "r", policy::Matcher(policy::Condition()), std::move(actions)});
  }
  return Snapshot::of(std::move(compiled));
}

class EngineTest : public testing::Test {
 protected:
  EngineTest() { events.clear(); }

  Outcome run(const Snapshot& policy) {
    message_ = message_ != nullptr ? std::move(message_) : withHeader("Subject: x\n");
    return runMessage(*message_, policy, {.adapter = adapter_, .log = nullptr, .hostName = "host"});
  }
  Outcome run(const std::vector<std::vector<std::string>>& rules) { return run(*scripted(rules)); }

  cli::DryAdapter adapter_;
  std::unique_ptr<host::message::Message> message_;
};

TEST_F(EngineTest, LeavesAMessageAloneThatNoRuleMatches) {
  const Outcome outcome =
      run(*policy::snapshotOf("rules:\n- {id: 1, when: {subject: other}, actions: [delete]}\n"));
  EXPECT_EQ(outcome.verdict, Verdict::Unchanged);
  EXPECT_THAT(outcome.rules, IsEmpty());
  EXPECT_THAT(adapter_.operations(), IsEmpty());
}

TEST_F(EngineTest, FillsInTokensOfAllActionsBeforeTheFirstRuns) {
  run({{"a", "b"}, {"c"}});
  EXPECT_THAT(events, ElementsAre("fill a of rule 1", "fill b of rule 1", "run a", "run b",
                                  "fill c of rule 2", "run c"));
}

TEST_F(EngineTest, DisposesWhenFlagAndResultAreTrue) {
  const Outcome outcome = run({{"flag"}});
  EXPECT_EQ(outcome.verdict, Verdict::Disposed);
  EXPECT_TRUE(outcome.rules[0].actions[0].disposed);
}

TEST_F(EngineTest, AFlagWithoutSuccessDisposesOfNothing) {
  const Outcome outcome = run({{"flag fail"}});
  EXPECT_EQ(outcome.verdict, Verdict::Failed);
  EXPECT_FALSE(outcome.disposed);
  EXPECT_TRUE(outcome.rules[0].actions[0].flag);
  EXPECT_FALSE(outcome.rules[0].actions[0].disposed);
}

TEST_F(EngineTest, NothingUndoesADisposal) {
  const Outcome outcome = run({{"flag", "clear", "plain"}});
  EXPECT_EQ(outcome.verdict, Verdict::Disposed);
  EXPECT_THAT(outcome.rules[0].actions, SizeIs(3));
  EXPECT_FALSE(outcome.rules[0].actions[1].disposed);
}

TEST_F(EngineTest, RunsTheRestOfTheRuleButNoLaterOne) {
  const Outcome outcome = run({{"first", "flag", "last"}, {"never"}});
  EXPECT_THAT(events, testing::Contains("run last"));
  EXPECT_THAT(events, testing::Not(testing::Contains("fill never of rule 2")));
  ASSERT_THAT(outcome.rules, SizeIs(2));
  EXPECT_TRUE(outcome.rules[0].reached);
  EXPECT_FALSE(outcome.rules[1].reached);
  EXPECT_THAT(outcome.rules[1].actions, IsEmpty());
}

TEST_F(EngineTest, AFailureEndsTheRun) {
  const Outcome outcome = run({{"header", "fail", "never"}, {"never"}});
  EXPECT_EQ(outcome.verdict, Verdict::Failed);
  EXPECT_THAT(outcome.rules[0].actions, SizeIs(2));
  EXPECT_FALSE(outcome.rules[1].reached);
  EXPECT_TRUE(message_->changed()) << "the caller gives out the received bytes";
  EXPECT_EQ(message_->receivedBytes(), "Subject: x\n\nbody\n");
}

TEST_F(EngineTest, AFailureBehindADisposalFailsAndSaysBoth) {
  const Outcome outcome = run({{"flag", "fail"}});
  EXPECT_EQ(outcome.verdict, Verdict::Failed);
  EXPECT_TRUE(outcome.disposed);
}

TEST_F(EngineTest, WhatAnActionThrowsIsItsFailure) {
  Outcome outcome = run({{"flag throw"}});
  EXPECT_EQ(outcome.verdict, Verdict::Failed);
  EXPECT_FALSE(outcome.rules[0].actions[0].disposed);
  EXPECT_EQ(outcome.rules[0].actions[0].failure, "exception: scripted fault");
  outcome = run({{"other"}});
  EXPECT_EQ(outcome.rules[0].actions[0].failure, "exception");
  EXPECT_EQ(outcome.verdict, Verdict::Failed);
}

TEST_F(EngineTest, AnActionThatCannotBeBuiltFails) {
  const Outcome outcome = run({{"unbuilt", "never"}});
  EXPECT_EQ(outcome.verdict, Verdict::Failed);
  ASSERT_THAT(outcome.rules[0].actions, SizeIs(1));
  EXPECT_EQ(outcome.rules[0].actions[0].failure, "refused its setting");
}

TEST_F(EngineTest, WhatTokenFillingThrowsFailsTheRun) {
  const Outcome outcome = run({{"badfill"}});
  EXPECT_EQ(outcome.verdict, Verdict::Failed);
  EXPECT_EQ(outcome.failure, "exception: no tokens");
  EXPECT_THAT(outcome.rules[0].actions, IsEmpty());
}

TEST_F(EngineTest, HandsOverTheReceivedMessageToThoseThatNeedIt) {
  EXPECT_EQ(run({{"header", "original"}}).verdict, Verdict::Changed);
}

TEST_F(EngineTest, ReportsWhatEachActionChanged) {
  const Outcome outcome = run({{"header", "plain"}});
  EXPECT_EQ(outcome.verdict, Verdict::Changed);
  const ActionReport& first = outcome.rules[0].actions[0];
  ASSERT_THAT(first.changes, SizeIs(1));
  EXPECT_EQ(first.changes[0].what, "X-Scripted");
  EXPECT_EQ(first.bytesAfter, first.bytesBefore + std::string("X-Scripted: 1\n").size());
  EXPECT_THAT(outcome.rules[0].actions[1].changes, IsEmpty());
}

TEST_F(EngineTest, AMessageChangedBackIsUnchanged) {
  EXPECT_EQ(run({{"plain"}}).verdict, Verdict::Unchanged);
}

TEST_F(EngineTest, FillsTheTokenMap) {
  message_ = withHeader("Subject: x\n");
  message_->setEnvelope({.sender = "a@x.example",
                         .recipients = {"b@x.example", "c@x.example"},
                         .senderDisplayName = {}});
  const std::string size = std::to_string(message_->renderedSize());
  run({{"first"}, {"second", "third"}});
  const auto& tokens = ScriptedAction::lastTokens;
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::Sender), "a@x.example");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::Recipients), "b@x.example;c@x.example");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::RuleId), "2");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::RuleName), "r");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::MailId), message_->id());
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::Protocol), "SMTP");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::HostName), "host");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::MessageSize), size);
  const auto ruleActions =
      host::core::parseTakenActions(tokens.valueOrEmpty(ScanToken::RawActions));
  ASSERT_TRUE(ruleActions.has_value());
  ASSERT_THAT(*ruleActions, SizeIs(1));
  EXPECT_EQ((*ruleActions)[0].detail, "second");
  EXPECT_THAT(*host::core::parseTakenActions(tokens.valueOrEmpty(ScanToken::RawTotalActions)),
              SizeIs(2));
}

TEST_F(EngineTest, RulesSeeTheMessageAsItCame) {
  const Outcome outcome = run(
      *policy::snapshotOf("rules:\n"
                          "- {id: 1, when: always, actions: [{x_header: 'Subject: changed'}]}\n"
                          "- {id: 2, when: {subject: changed}, actions: [delete]}\n"
                          "- {id: 3, when: {subject: '^x$'}, actions: [{x_header: 'X-A: b'}]}\n"));
  ASSERT_THAT(outcome.rules, SizeIs(2));
  EXPECT_EQ(outcome.rules[1].id, 3u);
  EXPECT_EQ(message_->toString(), "Subject: changed\nX-A: b\n\nbody\n");
}

TEST_F(EngineTest, NamesTheAttachmentsThatMadeARuleMatch) {
  message_ = withAttachments();
  const Outcome outcome = run(*policy::snapshotOf(
      "rules:\n- {id: 1, when: {any: [{attachment_name: '*.exe'}, {attachment_type: "
      "'image/*'}]}, actions: []}\n"));
  ASSERT_THAT(outcome.rules, SizeIs(1));
  EXPECT_THAT(outcome.rules[0].attachments, ElementsAre("Tool.EXE", "image/png"));
  EXPECT_EQ(outcome.verdict, Verdict::Unchanged);
}

constexpr char kAreas[] =
    "quarantine_areas: [{name: virus, aging_days: 7}]\n"
    "archive_areas: [{name: journal}]\n";

TEST_F(EngineTest, GivesActionsTheirRecords) {
  const Outcome outcome = run(*policy::snapshotOf(
      std::string(kAreas) +
      "rules:\n- {id: 15, when: always, actions: [{archive: journal}, {quarantine: virus}]}\n"));
  EXPECT_EQ(outcome.verdict, Verdict::Disposed);
  EXPECT_THAT(adapter_.operations(), ElementsAre("archive", "quarantine"));
  EXPECT_FALSE(outcome.rules[0].actions[0].disposed);
  EXPECT_EQ(outcome.rules[0].actions[0].value, "journal");
  EXPECT_EQ(outcome.rules[0].actions[1].value, "virus");
}

TEST_F(EngineTest, SendsOnToOthers) {
  message_ = withHeader("Subject: x\n");
  message_->setEnvelope(
      {.sender = "a@x.example", .recipients = {"b@x.example"}, .senderDisplayName = {}});
  const Outcome outcome = run(*policy::snapshotOf(
      "rules:\n- {id: 1, when: always, actions: [{bcc: [c@x.example]}, {readdress: "
      "[r@x.example]}]}\n"));
  EXPECT_EQ(outcome.verdict, Verdict::Disposed);
  EXPECT_THAT(adapter_.operations(), ElementsAre("resend"));
  EXPECT_THAT(message_->envelope().recipients, ElementsAre("r@x.example", "c@x.example"));
}

TEST_F(EngineTest, HandsOff) {
  const Outcome outcome = run(*policy::snapshotOf(
      "rules:\n- {id: 1, when: always, actions: [{handoff: 'h.example:25'}, ibe_encrypt]}\n"));
  EXPECT_EQ(outcome.verdict, Verdict::Disposed);
  EXPECT_THAT(adapter_.operations(), ElementsAre("handoff"));
}

TEST(Records, AreOfOneRunOnly) {
  const auto policy = policy::snapshotOf(
      std::string(kAreas) + "rules:\n- {id: 1, when: always, actions: [{quarantine: virus}]}\n");
  const Snapshot::Rule& rule = policy->rules()[0];
  const unsigned int id = rule.actions[0].objects.at(0);
  Records one(*policy);
  Records two(*policy);
  EXPECT_EQ(one.manager().find(id), nullptr);
  one.addFor(rule);
  auto* record = dynamic_cast<uiQuarantineArea*>(one.manager().find(id));
  ASSERT_NE(record, nullptr);
  record->areaName = "changed";
  one.addFor(rule);
  EXPECT_EQ(one.manager().find(id), record) << "built once";
  two.addFor(rule);
  EXPECT_EQ(dynamic_cast<uiQuarantineArea&>(*two.manager().find(id)).areaName, "virus");
  one.renewFor(rule.actions[0]);
  EXPECT_EQ(dynamic_cast<uiQuarantineArea&>(*one.manager().find(id)).areaName, "virus");
}

/// Refuses everything.
class RefusingAdapter final : public OvIsAdapter {
 public:
  int deleteMessage(unsigned int& error, OvMsgMailMessage*) override { return refuse(error); }
  int postponeMessage(unsigned int& error, OvMsgMailMessage*, unsigned char, unsigned char,
                      unsigned char, unsigned char) override {
    return refuse(error);
  }
  int handoffMessage(unsigned int& error, OvMsgMailMessage*, const char*, int) override {
    return refuse(error);
  }
  int quarantineMessage(unsigned int& error, OvMsgMailMessage*, const char*, const char*,
                        char (&)[kQuarantinePathSize]) override {
    return refuse(error);
  }
  int archiveMessage(unsigned int& error, OvMsgMailMessage*, const char*, const char*,
                     const char (&)[kArchiveAreaNameSize]) override {
    return refuse(error);
  }
  int resendMessage(unsigned int& error, OvMsgMailMessage*, int) override { return refuse(error); }
  int deliverMessage(unsigned int& error, OvMsgMailMessage*) override { return refuse(error); }

 private:
  static int refuse(unsigned int& error) {
    error = 5;
    return 1;
  }
};

TEST(EngineWithTheLibrary, CollectsTheLogLinesOfEachAction) {
  // The library keeps the log that it is started with.
  static host::core::ProcessLog log({.level = 0});
  static host::core::IniSettings settings;
  InitActionLib(settings, log);
  RefusingAdapter adapter;
  const auto message = withHeader("Subject: x\n");
  const auto policy = policy::snapshotOf(
      "rules:\n- {id: 1, when: always, actions: [{x_header: 'X-A: b'}, {postpone: '8:30'}]}\n");
  const Outcome outcome =
      runMessage(*message, *policy, {.adapter = adapter, .log = &log, .logLevel = 2});
  EXPECT_EQ(outcome.verdict, Verdict::Failed);
  ASSERT_THAT(outcome.rules[0].actions, SizeIs(2));
  EXPECT_THAT(outcome.rules[0].actions[0].log, IsEmpty());
  const ActionReport& postpone = outcome.rules[0].actions[1];
  EXPECT_TRUE(postpone.flag);
  EXPECT_FALSE(postpone.disposed);
  ASSERT_THAT(postpone.log, SizeIs(1));
  EXPECT_EQ(postpone.log[0].level, 1);
  EXPECT_EQ(postpone.log[0].text, "Failed to postpone a message, error 5.");
}

}  // namespace
}  // namespace gateway::engine
