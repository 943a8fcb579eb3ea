// What the engine tells an adapter about the message that it works for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/engine/engine.h"
#include "host/delivery/adapter_error.h"
#include "tests/unit/gateway/handoff_refusing_adapter.h"
#include "tests/unit/gateway/messages.h"
#include "tests/unit/gateway/policy_texts.h"

namespace gateway::engine {
namespace {

using host::delivery::AdapterError;
using host::delivery::FinalAnswer;
using host::delivery::ReprocessTrust;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Writes down what it is told, and answers as a test wants.
class NotingRun final : public host::delivery::MessageRun {
 public:
  void setPasses(unsigned int passes) override { note("passes " + std::to_string(passes)); }
  AdapterError beginMessage(const OvMsgMailMessage&, std::string_view received,
                            const Kavi::TokenMap<Kavi::ScanToken>& tokens) override {
    note("message of " + std::to_string(received.size()) + " bytes");
    sender = tokens.valueOrEmpty(Kavi::ScanToken::Sender);
    return atMessage;
  }
  AdapterError beginAction(unsigned int ruleId, unsigned int position,
                           std::string_view setting) override {
    note(std::to_string(ruleId) + "/" + std::to_string(position) + " " + std::string(setting));
    return atAction;
  }
  AdapterError finalAnswer(FinalAnswer) override {
    note("answer");
    return AdapterError::None;
  }
  const std::string& lastFault() const override { return fault; }

  std::vector<std::string> notes;
  std::string sender;
  std::string fault;
  AdapterError atMessage = AdapterError::None;
  AdapterError atAction = AdapterError::None;

 private:
  void note(const std::string& text) { notes.push_back(text); }
};

constexpr char kPolicy[] =
    "rules:\n"
    "- {id: 4, when: {subject: {matches: none}}, actions: [delete]}\n"
    "- {id: 7, when: always, actions: [virus_clean, {handoff: 'h:25'}]}\n"
    "- {id: 9, when: always, actions: [delete]}\n";

class AdapterRunTest : public testing::Test {
 protected:
  Outcome run(const char* policy, const std::string& header = "Subject: x\n",
              ReprocessTrust trust = ReprocessTrust::Nobody) {
    message_ = withHeader(header);
    return runMessage(*message_, *policy::snapshotOf(policy),
                      {.adapter = adapter_, .adapterRun = &run_, .hostName = "h", .trust = trust});
  }
  std::string setting(const Outcome& outcome, std::size_t action) {
    return outcome.rules.at(0).actions.at(action).setting;
  }

  HandoffRefusingAdapter adapter_;
  NotingRun run_;
  std::unique_ptr<host::message::Message> message_;
};

TEST_F(AdapterRunTest, TellsTheMessageAndEachActionThatRuns) {
  const Outcome outcome = run(kPolicy);
  EXPECT_EQ(outcome.verdict, Verdict::Failed);
  EXPECT_THAT(
      run_.notes,
      ElementsAre("passes 0",
                  "message of " + std::to_string(message_->receivedBytes().size()) + " bytes",
                  "7/0 " + setting(outcome, 0), "7/1 " + setting(outcome, 1)))
      << "and leaves the final answer to whoever gives it";
}

TEST_F(AdapterRunTest, TellsNothingOfAMessageThatNoRuleMatches) {
  run("rules:\n- {id: 1, when: {subject: {matches: none}}, actions: [delete]}\n");
  EXPECT_THAT(run_.notes, IsEmpty());
}

TEST_F(AdapterRunTest, HandsOverTheTokensOfTheMessage) {
  message_ = withHeader("Subject: x\n");
  message_->setEnvelope({"a@x.example", {"b@x.example"}, {}});
  runMessage(*message_, *policy::snapshotOf(kPolicy),
             {.adapter = adapter_, .adapterRun = &run_, .hostName = "h"});
  EXPECT_EQ(run_.sender, "a@x.example");
}

TEST_F(AdapterRunTest, RunsNothingWhenTheMessageCannotBeBegun) {
  run_.atMessage = AdapterError::OutOfMemory;
  const Outcome outcome = run(kPolicy);
  EXPECT_EQ(outcome.verdict, Verdict::Failed);
  EXPECT_EQ(outcome.failure, "exception: out of memory");
  EXPECT_THAT(outcome.rules.at(0).actions, IsEmpty());
}

TEST_F(AdapterRunTest, AnActionThatCannotBeBegunFails) {
  run_.atAction = AdapterError::OutOfMemory;
  const Outcome outcome = run("rules:\n- {id: 9, when: always, actions: [delete]}\n");
  EXPECT_EQ(outcome.verdict, Verdict::Failed);
  EXPECT_THAT(outcome.rules.at(0).actions.at(0).failure, HasSubstr("out of memory"));
  EXPECT_THAT(adapter_.dry.operations(), IsEmpty());
}

TEST_F(AdapterRunTest, SaysWhatTheAdapterKnowsOfAFailure) {
  run_.fault = "store.sqlite: locked by somebody";
  const Outcome outcome = run(kPolicy);
  const ActionReport& action = outcome.rules.at(0).actions.at(1);
  EXPECT_EQ(action.failure, "store.sqlite: locked by somebody");
  ASSERT_EQ(action.handOvers.size(), 1u);
  EXPECT_EQ(action.handOvers[0].operation, "handoff");
  EXPECT_EQ(action.handOvers[0].error, static_cast<unsigned int>(AdapterError::IndexBusy));
  EXPECT_EQ(outcome.rules.at(0).actions.at(0).failure, "");
}

TEST_F(AdapterRunTest, NamesThePlaceOfAStoredMessage) {
  const Outcome outcome =
      run("quarantine_areas: [{name: virus}]\n"
          "rules:\n- {id: 15, when: always, actions: [{quarantine: virus}]}\n");
  EXPECT_THAT(outcome.rules.at(0).actions.at(0).handOvers.at(0).place, HasSubstr(".DF"));
}

TEST(AnswerFor, KeepsTheMessageWithItsSenderWhenTheRunFailed) {
  EXPECT_EQ(answerFor(Verdict::Failed), FinalAnswer::TemporaryFailure);
  EXPECT_EQ(answerFor(Verdict::Disposed), FinalAnswer::Discarded);
  EXPECT_EQ(answerFor(Verdict::Changed), FinalAnswer::Accepted);
  EXPECT_EQ(answerFor(Verdict::Unchanged), FinalAnswer::Accepted);
}

}  // namespace
}  // namespace gateway::engine
