#include "gateway/engine/tokens.h"

#include "host/core/action_list.h"

namespace gateway::engine {
namespace {

using Kavi::ScanToken;

std::string joined(const std::vector<std::string>& texts, char separator) {
  std::string out;
  for (const std::string& text : texts) {
    if (!out.empty()) out += separator;
    out += text;
  }
  return out;
}

}  // namespace

void fillMessageTokens(Tokens& tokens, const host::message::Message& message,
                       const scan::MessageFacts& facts, const std::string& protocol,
                       const std::string& hostName) {
  tokens.set(ScanToken::Sender, facts.sender());
  tokens.set(ScanToken::Recipients, joined(facts.recipients(), ';'));
  tokens.set(ScanToken::MailId, message.id());
  tokens.set(ScanToken::OriginalMailId, message.id());
  tokens.set(ScanToken::Protocol, protocol);
  tokens.set(ScanToken::MessageSize, std::to_string(facts.size()));
  if (!hostName.empty()) tokens.set(ScanToken::HostName, hostName);
  tokens.set(ScanToken::RawTotalActions, "");
}

void fillRuleTokens(Tokens& tokens, const policy::Snapshot::Rule& rule,
                    const std::vector<std::string>& attachments) {
  tokens.set(ScanToken::RuleId, std::to_string(rule.id));
  tokens.set(ScanToken::RuleName, rule.name);
  tokens.set(ScanToken::RawActions, "");
  tokens.erase(ScanToken::Action);
  // Lists of names are kept one to a line.
  tokens.set(ScanToken::FileName, joined(attachments, '\n'));
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
