#include "gateway/cli/rule_report.h"

#include <algorithm>

#include "gateway/cli/bound_action.h"
#include "gateway/cli/json_output.h"
#include "gateway/cli/object_report.h"
#include "gateway/cli/object_target.h"
#include "gateway/policy/policy_entries.h"
#include "gateway/policy/policy_records.h"
#include "gateway/policy/rule_options.h"
#include "gateway/policy/yaml_writer.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

using host::core::printable;
using host::store::ActionRecord;
using host::store::ObjectRecord;
using host::store::PolicyRecord;
using host::store::RuleRecord;
using nlohmann::ordered_json;

/// What a rule does, its verdict last.
std::string actionsText(const RuleRecord& rule) {
  std::string text;
  for (const ActionRecord& action : rule.actions) {
    text += (text.empty() ? "" : ", ") + actionWord(action);
  }
  if (rule.verdict.kind != policy::RuleVerdict::Kind::None) {
    text += (text.empty() ? "" : ", ") + std::string(policy::wordOf(rule.verdict.kind));
  }
  return text.empty() ? "none" : text;
}

ordered_json actionJson(const PolicyRecord& policy, const ActionRecord& action) {
  ordered_json json = {{"action", actionWord(action)}, {"code", action.type}};
  addBytes("setting", action.setting, json);
  if (usesObjects(action)) json["objects"] = objectsJson(policy, action.objects);
  return json;
}

}  // namespace

const ObjectRecord* objectOf(const PolicyRecord& policy, unsigned int id) {
  const auto object = std::lower_bound(
      policy.objects.begin(), policy.objects.end(), id,
      [](const ObjectRecord& candidate, unsigned int wanted) { return candidate.id < wanted; });
  return object != policy.objects.end() && object->id == id ? &*object : nullptr;
}

std::string objectsText(const PolicyRecord& policy, const std::vector<unsigned int>& ids) {
  std::string text;
  for (const unsigned int id : ids) {
    const ObjectRecord* object = objectOf(policy, id);
    text += (text.empty() ? "" : ", ") +
            (object != nullptr ? objectText(*object)
                               : "object " + std::to_string(id) + ", which is not there");
  }
  return text;
}

ordered_json objectsJson(const PolicyRecord& policy, const std::vector<unsigned int>& ids) {
  ordered_json list = ordered_json::array();
  for (const unsigned int id : ids) {
    ordered_json entry = {{"id", id}};
    if (const ObjectRecord* object = objectOf(policy, id)) {
      entry["type"] = kindWord(object->type);
      addBytes("name", object->name, entry);
    }
    list.push_back(std::move(entry));
  }
  return list;
}

std::string ruleListText(const std::vector<RuleRecord>& rules) {
  if (rules.empty()) return "no rules\n";
  Table table({"ID", "NAME", "ENABLED", "ACTIONS", "WHEN"});
  for (const RuleRecord& rule : rules) {
    table.add({std::to_string(rule.id), rule.name, rule.enabled ? "yes" : "no", actionsText(rule),
               rule.condition});
  }
  return table.text();
}

ordered_json ruleListJson(const PolicyRecord& policy) {
  ordered_json list = ordered_json::array();
  for (const RuleRecord& rule : policy.rules) list.push_back(ruleJson(policy, rule));
  return list;
}

std::string ruleShowText(const PolicyRecord& policy, const RuleRecord& rule) {
  PolicyRecord one;
  one.objects = policy.objects;
  one.rules = {rule};
  const policy::PolicyRows rows = policy::rowsOf(one);
  policy::Document document;
  const policy::ObjectNames names(rows.objects);
  std::string text = policy::writeYaml(policy::ruleEntry(rows.rules.front(), names, document));
  if (!rule.actions.empty()) text += "\n";
  for (std::size_t i = 0; i < rule.actions.size(); ++i) {
    const ActionRecord& action = rule.actions[i];
    text += "# action " + std::to_string(i + 1) + ", " + actionWord(action) + ", is stored as '" +
            printable(action.setting) + "'\n";
  }
  return text;
}

ordered_json ruleJson(const PolicyRecord& policy, const RuleRecord& rule) {
  ordered_json json = {{"id", rule.id}};
  addBytes("name", rule.name, json);
  json["order"] = rule.order;
  json["enabled"] = rule.enabled;
  // The stored text is JSON itself, unless somebody else wrote it.
  ordered_json condition = ordered_json::parse(rule.condition, nullptr, false);
  if (condition.is_discarded()) condition = rule.condition;
  json["when"] = std::move(condition);
  json["on_failure"] = policy::wordOf(rule.onFailure);
  if (rule.verdict.kind != policy::RuleVerdict::Kind::None) {
    json["verdict"] = policy::wordOf(rule.verdict.kind);
    addBytes("verdict_text", rule.verdict.text, json);
  }
  json["actions"] = ordered_json::array();
  for (const ActionRecord& action : rule.actions) {
    json["actions"].push_back(actionJson(policy, action));
  }
  return json;
}

void BindingsReport::add(const PolicyRecord& policy, std::size_t place, const ActionRecord& action,
                         const OperationResult& result, const std::vector<unsigned int>& ids) {
  table_.add({std::to_string(place + 1), actionWord(action),
              std::to_string(result.code) + " " + result.word, objectsText(policy, ids)});
  ordered_json json = {{"place", place + 1}, {"action", actionWord(action)}};
  json.update(toJson(result));
  json["objects"] = objectsJson(policy, ids);
  list_.push_back(std::move(json));
}

void BindingsReport::print(const RuleRecord& rule, bool asJson) const {
  if (asJson) {
    printJson(list_);
  } else if (table_.isEmpty()) {
    printLine("no action of " + ruleText(rule) + " uses named objects");
  } else {
    printText(table_.text());
  }
}

}  // namespace gateway::cli
