#include <nlohmann/json.hpp>

#include "gateway/cli/json_output.h"
#include "gateway/cli/report.h"

namespace gateway::cli {
namespace {

using engine::ActionReport;
using engine::RuleReport;
using engine::Verdict;
using host::message::Change;
using nlohmann::ordered_json;

const char* wordOf(Change::Kind kind) {
  switch (kind) {
    case Change::Kind::HeaderAdded:
      return "header_added";
    case Change::Kind::HeaderChanged:
      return "header_changed";
    case Change::Kind::HeaderRemoved:
      return "header_removed";
    case Change::Kind::PartAdded:
      return "part_added";
    case Change::Kind::PartChanged:
      return "part_changed";
    case Change::Kind::PartRemoved:
      return "part_removed";
  }
  return "changed";
}

const char* wordOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::Unchanged:
      return "unchanged";
    case Verdict::Changed:
      return "changed";
    case Verdict::Disposed:
      return "disposed";
    case Verdict::Rejected:
      return "rejected";
    case Verdict::TempFailed:
      return "tempfailed";
    case Verdict::Failed:
      return "failed";
  }
  return "failed";
}

const char* wordOf(SNMPTrapVersion version) { return version == SNMPTrapVersion::V2c ? "2c" : "1"; }

ordered_json toJson(const ActionReport& action) {
  ordered_json changes = ordered_json::array();
  for (const Change& change : action.changes) {
    changes.push_back(
        {{"kind", wordOf(change.kind)}, {"what", change.what}, {"part", change.entityPath}});
  }
  ordered_json log = ordered_json::array();
  for (const auto& line : action.log) log.push_back({{"level", line.level}, {"text", line.text}});
  ordered_json json = {{"action", action.spec->name},
                       {"code", static_cast<int>(action.spec->type)},
                       {"value", action.value},
                       {"setting", action.setting},
                       {"result", action.result},
                       {"flag", action.flag},
                       {"disposed", action.disposed},
                       {"changes", std::move(changes)},
                       {"bytes_before", action.bytesBefore},
                       {"bytes_after", action.bytesAfter},
                       {"log", std::move(log)}};
  for (const engine::HandOver& handOver : action.handOvers) {
    if (handOver.rules.empty()) continue;
    json["reprocess"] = {{"rules_handed_over", handOver.rules},
                         {"type", handOver.type},
                         {"rules_left", action.rulesLeft}};
  }
  for (const engine::HandOver& handOver : action.handOvers) {
    if (!handOver.mail) continue;
    json["mails"].push_back({{"operation", handOver.operation},
                             {"sender", handOver.mail->sender},
                             {"recipients", handOver.mail->recipients},
                             {"content", handOver.mail->bytes}});
  }
  for (const host::trap::RecordedTrap& trap : action.traps) {
    json["traps"].push_back({{"server", trap.server},
                             {"version", wordOf(trap.version)},
                             {"oid", trap.oid},
                             {"type", trap.specificType},
                             {"text", trap.text}});
  }
  if (!action.failure.empty()) json["failure"] = action.failure;
  return json;
}

ordered_json toJson(const RuleReport& rule) {
  ordered_json actions = ordered_json::array();
  for (const ActionReport& action : rule.actions) actions.push_back(toJson(action));
  ordered_json json = {
      {"id", rule.id},           {"name", rule.name},       {"attachments", rule.attachments},
      {"skipped", rule.skipped}, {"reached", rule.reached}, {"actions", std::move(actions)}};
  if (rule.failureAccepted) {
    json["failure_accepted"] = {{"failure", engine::whatFailed(rule)},
                                {"effects", engine::lastingEffects(rule)}};
  }
  return json;
}

void addParts(const MessageResult& result, ordered_json& json) {
  ordered_json parts = ordered_json::array();
  for (const PartChange& part : result.parts) {
    ordered_json fields = ordered_json::array();
    for (const FieldChange& field : part.fields) {
      fields.push_back({{"name", field.name}, {"change", wordOf(field.kind)}});
    }
    parts.push_back({{"part", part.path},
                     {"change", wordOf(part.kind)},
                     {"name", part.name},
                     {"type", part.type},
                     {"fields", std::move(fields)},
                     {"content", part.content},
                     {"bytes_before", part.bytesBefore},
                     {"bytes_after", part.bytesAfter}});
  }
  json["parts"] = std::move(parts);
  for (const DiffSection& section : result.diff) {
    ordered_json lines = ordered_json::array();
    for (const DiffLine& line : section.lines) lines.push_back(line.mark + line.text);
    json["diff"].push_back({{"title", section.title}, {"lines", std::move(lines)}});
  }
}

void addRun(const MessageResult& result, ordered_json& json) {
  json["id"] = result.id;
  json["bytes"] = result.bytes;
  json["envelope"] = {{"from", result.envelope.envelope.sender.value_or("")},
                      {"from_source", result.envelope.senderSource},
                      {"rcpt", result.envelope.envelope.recipients},
                      {"rcpt_source", result.envelope.recipientsSource}};
  ordered_json defects = ordered_json::array();
  for (const auto& defect : result.defects) {
    defects.push_back({{"offset", defect.offset}, {"text", defect.text}});
  }
  json["defects"] = std::move(defects);
  const host::delivery::Reprocessing& reprocessing = result.outcome.reprocessing;
  if (reprocessing.honoured || !reprocessing.refusal.empty()) {
    json["reprocessing"] = {{"honoured", reprocessing.honoured},
                            {"rules", reprocessing.rules},
                            {"type", reprocessing.type},
                            {"refusal", reprocessing.refusal}};
  }
  ordered_json rules = ordered_json::array();
  for (const RuleReport& rule : result.outcome.rules) rules.push_back(toJson(rule));
  json["rules"] = std::move(rules);
  ordered_json calls = ordered_json::array();
  for (const AdapterCall& call : result.calls) {
    ordered_json entry = {{"operation", call.operation}, {"error", call.error}};
    if (!call.reason.empty()) entry["error_text"] = call.reason;
    if (!call.file.empty()) addBytes("file", call.file, entry);
    entry["from"] = call.sender;
    entry["rcpt"] = call.recipients;
    calls.push_back(std::move(entry));
  }
  json["calls"] = std::move(calls);
  if (result.outcome.verdict == Verdict::Changed) addParts(result, json);
  json["verdict"] = wordOf(result.outcome.verdict);
  json["disposed"] = result.outcome.disposed;
  if (result.outcome.verdictRule != 0) {
    json["verdict_rule"] = result.outcome.verdictRule;
    json["verdict_text"] = result.outcome.verdictText;
  }
  if (!result.outcome.failure.empty()) json["failure"] = result.outcome.failure;
  if (result.outputRecipients) json["output_rcpt"] = *result.outputRecipients;
  if (!result.output.empty()) addBytes("output", result.output, json);
  if (engine::goesOn(result.outcome.verdict) || result.outcome.verdict == Verdict::Failed) {
    json["output_bytes"] = result.outputBytes;
  }
}

}  // namespace

std::string jsonReport(const MessageResult& result) {
  ordered_json json;
  addBytes("input", result.file != nullptr ? result.file->path : result.name, json);
  if (result.number != 0) json["message"] = result.number;
  if (result.ran) addRun(result, json);
  if (!result.error.empty()) json["error"] = result.error;
  // Names and addresses are bytes from outside: what is no UTF-8 becomes U+FFFD.
  return json.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

}  // namespace gateway::cli
