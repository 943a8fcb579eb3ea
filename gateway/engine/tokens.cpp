#include "gateway/engine/tokens.h"

#include <string_view>
#include <vector>

#include "host/core/action_list.h"

namespace gateway::engine {
namespace {

using Kavi::ScanToken;

/// Texts from a message stand on one line each: control bytes become blanks.
std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
  std::string out;
  for (const std::string& text : texts) {
    if (!out.empty()) out += separator;
    for (const char c : text) out += static_cast<unsigned char>(c) < 32 ? ' ' : c;
  }
  return out;
}

std::string joined(const std::vector<std::size_t>& numbers) {
  std::string out;
  for (const std::size_t number : numbers) {
    if (!out.empty()) out += ", ";
    out += std::to_string(number);
  }
  return out;
}

/// The recipients that the header names, as written there.
std::string headerRecipients(const scan::MessageFacts& facts) {
  std::vector<std::string> values = facts.headers("to");
  const std::vector<std::string>& copies = facts.headers("cc");
  values.insert(values.end(), copies.begin(), copies.end());
  return joined(values, ", ");
}

}  // namespace

void fillMessageTokens(Tokens& tokens, const host::message::Message& message,
                       const scan::MessageFacts& facts, const std::string& protocol,
                       const std::string& hostName) {
  tokens.set(ScanToken::Sender, facts.sender());
  tokens.set(ScanToken::Recipients, joined(facts.recipients(), ";"));
  tokens.set(ScanToken::HeaderRecipients, headerRecipients(facts));
  tokens.set(ScanToken::MailId, message.id());
  tokens.set(ScanToken::OriginalMailId, message.id());
  tokens.set(ScanToken::Protocol, protocol);
  tokens.set(ScanToken::MessageSize, std::to_string(facts.size()));
  tokens.set(ScanToken::AttachmentCount, std::to_string(facts.attachments().size()));
  if (!hostName.empty()) tokens.set(ScanToken::HostName, hostName);
  tokens.set(ScanToken::RawTotalActions, "");
}

void fillRuleTokens(Tokens& tokens, const Match& match) {
  const policy::Snapshot::Rule& rule = *match.rule;
  const std::string kind(policy::wordOf(rule.matcher.kind()));
  tokens.set(ScanToken::RuleId, std::to_string(rule.id));
  tokens.set(ScanToken::RuleName, rule.name);
  tokens.set(ScanToken::RuleType, kind);
  tokens.set(ScanToken::Detected,
             match.attachments.empty() ? kind : joined(match.attachments, ", "));
  tokens.set(ScanToken::Entity, joined(match.entities));
  // Lists of file names are kept one to a line; the library brings them into their printed form.
  tokens.set(ScanToken::FileName, joined(match.fileNames, "\n"));
  tokens.set(ScanToken::FileType, joined(match.types, ", "));
  tokens.set(ScanToken::AttachmentSize, std::to_string(match.bytes));
  tokens.set(ScanToken::MarkedForDeletion, match.marks);
  tokens.set(ScanToken::MarkedForFeedback, match.marks);
  // No virus was looked for, so none condemns the message or all that hangs on it.
  tokens.set(ScanToken::WholeMailScan, "0");
  tokens.set(ScanToken::DeleteAll, "0");
  tokens.set(ScanToken::ForgetRawMarks, "0");
  tokens.set(ScanToken::RawActions, "");
  tokens.erase(ScanToken::Action);
}

std::string valueOf(const policy::Snapshot::Action& action) {
  std::string value = action.value;
  if (value.empty()) action.spec->decode(action.setting, value);
  return value;
}

void noteAction(Tokens& tokens, const policy::Snapshot::Action& action) {
  const std::string detail = valueOf(action);
  for (const ScanToken token : {ScanToken::RawActions, ScanToken::RawTotalActions}) {
    std::string list = tokens.valueOrEmpty(token);
    host::core::appendTakenAction(list, {action.spec->type, detail});
    tokens.set(token, std::move(list));
  }
  // The texts that the library made of the lists before are out of date.
  tokens.erase(ScanToken::Action);
  tokens.erase(ScanToken::TotalAction);
}

}  // namespace gateway::engine
