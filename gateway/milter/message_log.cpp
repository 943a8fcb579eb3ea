#include "gateway/milter/message_log.h"

#include <algorithm>
#include <string_view>

#include "host/core/text_escape.h"
#include "host/message/ascii.h"

namespace gateway::milter {
namespace {

/// Enough for a look at the mail of a list; the rest is counted.
constexpr std::size_t kMostNamed = 20;

bool isPlain(std::string_view value) {
  return !value.empty() && std::all_of(value.begin(), value.end(), [](char c) {
    return c > ' ' && c <= '~' && c != '"' && c != '\\' && c != '=';
  });
}

void add(std::string& line, const char* key, std::string_view value) {
  line.append(" ").append(key).append("=");
  if (isPlain(value)) {
    line.append(value);
    return;
  }
  line += '"';
  for (const char c : host::core::printable(value)) {
    if (c == '"' || c == '\\') line += '\\';
    line += c;
  }
  line += '"';
}

void addIfAny(std::string& line, const char* key, std::string_view value) {
  if (!value.empty()) add(line, key, value);
}

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (std::size_t i = 0; i < texts.size() && i < kMostNamed; ++i) {
    if (i != 0) all += ',';
    all += texts[i];
  }
  if (texts.size() > kMostNamed) all += ",and " + std::to_string(texts.size() - kMostNamed);
  return all;
}

const char* remarkOn(const engine::RuleReport& rule) {
  if (rule.failureAccepted) return "(accepted)";
  if (rule.skipped) return "(skipped)";
  return rule.reached ? "" : "(not-reached)";
}

std::string rulesOf(const engine::Outcome& outcome) {
  std::vector<std::string> ids;
  for (const engine::RuleReport& rule : outcome.rules) {
    ids.push_back(std::to_string(rule.id) + remarkOn(rule));
  }
  return joined(ids);
}

std::string actionsOf(const engine::Outcome& outcome) {
  std::vector<std::string> names;
  for (const engine::RuleReport& rule : outcome.rules) {
    for (const engine::ActionReport& action : rule.actions) {
      names.emplace_back(action.spec->name);
    }
  }
  return joined(names);
}

std::string recipientsOf(const CollectedMessage& collected) {
  std::vector<std::string> addresses;
  for (const EnvelopeAddress& recipient : collected.recipients()) {
    addresses.push_back("<" + recipient.text + ">");
  }
  return joined(addresses);
}

/// What an action's failure was: its own words, else the first line that it wrote.
std::string failureOf(const engine::ActionReport& action) {
  if (action.result) return {};
  if (!action.failure.empty()) return action.failure;
  return action.log.empty() ? std::string("failed") : action.log.front().text;
}

}  // namespace

std::string messageLine(const MessageRecord& record) {
  std::string line = "message";
  add(line, "queue", record.origin.queueId);
  addIfAny(line, "id", record.id);
  add(line, "verdict", record.answer.name());
  if (record.outcome.verdictRule != 0) {
    add(line, "rule", std::to_string(record.outcome.verdictRule));
    add(line, "text", record.outcome.verdictText);
  }
  addIfAny(line, "rules", rulesOf(record.outcome));
  addIfAny(line, "actions", actionsOf(record.outcome));
  addIfAny(line, "changes", joined(record.changes.names()));
  addIfAny(line, "failure", record.failure);
  addIfAny(line, "reprocessing", record.outcome.reprocessing.refusal);
  add(line, "from", "<" + record.collected.sender().text + ">");
  add(line, "to", recipientsOf(record.collected));
  addIfAny(line, "client", record.origin.clientName);
  addIfAny(line, "address", record.origin.clientAddress);
  addIfAny(line, "helo", record.origin.helo);
  addIfAny(line, "user", record.origin.user);
  addIfAny(line, "listener", record.origin.listener);
  add(line, "bytes", std::to_string(record.bytes));
  add(line, "ms", std::to_string(record.milliseconds));
  return line;
}

std::vector<std::string> acceptedLines(const MessageRecord& record) {
  std::vector<std::string> lines;
  for (const engine::RuleReport& rule : record.outcome.rules) {
    if (!rule.failureAccepted) continue;
    std::string line = "accepted";
    add(line, "queue", record.origin.queueId);
    add(line, "rule", std::to_string(rule.id));
    add(line, "failure", engine::whatFailed(rule));
    for (const engine::ActionReport& action : rule.actions) {
      addIfAny(line, "reason", failureOf(action));
    }
    addIfAny(line, "stays", joined(engine::lastingEffects(rule)));
    lines.push_back(std::move(line));
  }
  return lines;
}

std::vector<ActionLine> actionLines(const MessageRecord& record) {
  std::vector<ActionLine> lines;
  for (const engine::RuleReport& rule : record.outcome.rules) {
    for (const engine::ActionReport& action : rule.actions) {
      std::string line = "action";
      add(line, "queue", record.origin.queueId);
      add(line, "rule", std::to_string(rule.id));
      add(line, "action", action.spec->name);
      add(line, "result", action.result ? "ok" : "failed");
      if (action.disposed) add(line, "disposed", "yes");
      addIfAny(line, "failure", failureOf(action));
      lines.push_back({action.result || rule.failureAccepted ? 2 : 1, std::move(line)});
    }
  }
  return lines;
}

}  // namespace gateway::milter
