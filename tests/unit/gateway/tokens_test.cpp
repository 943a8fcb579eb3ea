#include "gateway/engine/tokens.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "gateway/cli/dry_adapter.h"
#include "gateway/engine/engine.h"
#include "host/core/ini_settings.h"
#include "host/core/log.h"
#include "library/framework/init_action_lib.h"
#include "library/tokens/action_utils.h"
#include "library/tokens/token_table.h"
#include "tests/unit/gateway/messages.h"
#include "tests/unit/gateway/policy_texts.h"

namespace gateway::engine {
namespace {

using Kavi::ScanToken;
using testing::MatchesRegex;

/// The token map when \p rule's first action would run.
Tokens tokensOf(const host::message::Message& message, const policy::Snapshot& policy,
                std::size_t rule = 0) {
  const scan::MessageFacts facts(message);
  std::vector<std::size_t> marked;
  EXPECT_TRUE(policy.rules()[rule].matcher.matches(facts, marked));
  Tokens tokens;
  fillMessageTokens(tokens, message, facts, "SMTP", "host.example");
  fillRuleTokens(tokens, describeMatch(policy.rules()[rule], facts, marked));
  return tokens;
}

TEST(Tokens, HoldWhatTheMessageGives) {
  const auto message = withAttachments();
  message->setEnvelope({.sender = "a@x.example",
                        .recipients = {"b@x.example", "c@x.example"},
                        .senderDisplayName = {}});
  const auto policy = policy::snapshotOf(
      "rules:\n- {id: 15, name: files, when: {any: [{attachment_name: '*.exe'}, "
      "{attachment_type: 'image/*'}]}, actions: []}\n");
  const Tokens tokens = tokensOf(*message, *policy);
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::Sender), "a@x.example");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::Recipients), "b@x.example;c@x.example");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::RuleId), "15");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::RuleName), "files");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::RuleType), "any");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::Detected), "Tool.EXE, image/png");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::FileName), "Tool.EXE");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::FileType), "application/octet-stream, image/png");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::Entity), "3, 4");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::AttachmentCount), "4");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::AttachmentSize), "5") << "MZ and png";
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::HostName), "host.example");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::WholeMailScan), "0");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::DeleteAll), "0");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::ForgetRawMarks), "0");
  EXPECT_EQ(tokens.find(ScanToken::Rescanned), nullptr);
}

TEST(Tokens, MarkTheEntitiesThatMatched) {
  const auto message = withAttachments();
  const auto policy = policy::snapshotOf(
      "rules:\n- {id: 1, when: {attachment_type: ['image/*', '*/octet-stream']}, actions: []}\n");
  const Tokens tokens = tokensOf(*message, *policy);
  const std::string marks = tokens.valueOrEmpty(ScanToken::MarkedForDeletion);
  unsigned int first = 0;
  unsigned int second = 0;
  unsigned long handle = 0;
  unsigned long other = 0;
  ASSERT_EQ(std::sscanf(marks.c_str(), "%u %lx;%u %lx", &first, &handle, &second, &other), 4)
      << marks;
  EXPECT_EQ(first, 3u);
  EXPECT_EQ(second, 4u);
  EXPECT_TRUE(message->contains(reinterpret_cast<const OvMsgEntity*>(handle)));
  EXPECT_TRUE(message->contains(reinterpret_cast<const OvMsgEntity*>(other)));
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::MarkedForFeedback), marks);
}

TEST(Tokens, OfARuleThatLooksAtNoAttachmentMarkNothing) {
  const auto message = withHeader("Subject: x\nTo: Ann <a@x.example>\nCc: b@x.example\n");
  const Tokens tokens = tokensOf(
      *message, *policy::snapshotOf("rules:\n- {id: 1, when: {subject: x}, actions: []}\n"));
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::MarkedForDeletion), "");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::Detected), "subject");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::AttachmentSize), "0");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::AttachmentCount), "0");
  EXPECT_EQ(tokens.valueOrEmpty(ScanToken::HeaderRecipients), "Ann <a@x.example>, b@x.example");
}

/// The rows "| `%TOKEN%` | code | text |" of the documentation: token and code.
std::vector<std::string> documentedTokens() {
  std::ifstream file(KAVI_DOCS_DIR "/tokens.md");
  EXPECT_TRUE(file.is_open());
  std::vector<std::string> rows;
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("| `%", 0) != 0) continue;
    const std::size_t end = line.find("` | ");
    const std::size_t codeEnd = line.find(" | ", end + 4);
    if (end == std::string::npos || codeEnd == std::string::npos) continue;
    EXPECT_GT(line.size(), codeEnd + 8) << "no explanation: " << line;
    rows.push_back(line.substr(3, end - 3) + " " + line.substr(end + 4, codeEnd - end - 4));
  }
  return rows;
}

TEST(Tokens, AreAllDocumented) {
  std::vector<std::string> known;
  for (const library::TokenRow* row = ActionUtils::getTokenNames(); row->text[0] != '\0'; ++row) {
    known.push_back(std::string(row->text) + " " + std::to_string(static_cast<int>(row->token)));
  }
  EXPECT_EQ(documentedTokens(), known) << "docs/tokens.md has one row for each, in their order";
}

class Expand : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    static host::core::ProcessLog log({.level = 0});
    static host::core::IniSettings settings;
    settings.override("general", "queue_quarantine", "/q");
    InitActionLib(settings, log);
  }
  Expansion expand(const std::string& text, const char* policyText) {
    cli::DryAdapter adapter;
    const auto policy = policy::snapshotOf(policyText);
    const Expansion expansion =
        expandText(text, *message_, *policy, {.adapter = adapter, .hostName = "h"});
    EXPECT_EQ(expansion.failure, "");
    EXPECT_TRUE(adapter.operations().empty());
    return expansion;
  }
  std::unique_ptr<host::message::Message> message_ = withHeader("Subject: hello\n");
};

TEST_F(Expand, ReplacesTokensOfTheMessage) {
  const Expansion expansion = expand("[%SUBJECT%] %HOSTNAME% 100% %RULENAME%", "rules: []\n");
  EXPECT_EQ(expansion.text, "[hello] h 100% ");
  EXPECT_EQ(expansion.rule, 0u);
}

TEST_F(Expand, TakesValuesOfTheFirstMatchingRule) {
  const Expansion expansion =
      expand("%RULENAME% %QUARANTINE_AREA% %QUARANTINE_PATH%",
             "quarantine_areas: [{name: virus}]\nrules:\n"
             "- {id: 1, name: one, when: {subject: other}, actions: []}\n"
             "- {id: 2, name: two, when: {subject: hello}, actions: [{quarantine: virus}]}\n"
             "- {id: 3, name: three, when: always, actions: []}\n");
  EXPECT_EQ(expansion.rule, 2u);
  EXPECT_THAT(expansion.text, MatchesRegex("two virus /q/./././.+\\.DF|two virus /q/./.+\\.DF"));
  EXPECT_FALSE(message_->changed());
}

}  // namespace
}  // namespace gateway::engine
