#include "gateway/cli/object_report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "gateway/cli/json_output.h"
#include "gateway/cli/object_target.h"
#include "gateway/cli/submission.h"
#include "gateway/cli/table.h"
#include "gateway/cli/terminal.h"
#include "gateway/policy/yaml_writer.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

using host::core::printable;
using host::store::ObjectRecord;
using host::store::RuleName;
using nlohmann::ordered_json;
using policy::Document;
using policy::Node;

std::string row(std::string_view label, const std::string& text) {
  return "    " + padded(label, 18) + text + "\n";
}

/// Texts of several lines as they stand, each line below the other.
std::string fieldRow(const std::string& label, const std::string& text) {
  std::string rows;
  std::size_t at = 0;
  do {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    rows += row(at == 0 ? label : "", printable(std::string_view(text).substr(at, end - at)));
    at = end + 1;
  } while (at < text.size());
  return rows;
}

std::string valueText(const Node& value) {
  if (value.kind != Node::Kind::List) return value.text;
  std::string text;
  for (const Node* item : value.items) text += (text.empty() ? "" : ", ") + item->text;
  return text;
}

ordered_json fieldsJson(const Node& entry) {
  ordered_json json = ordered_json::object();
  for (const Node::Member& member : entry.members) {
    if (member.key == "name") continue;
    if (member.value->kind != Node::Kind::List) {
      addBytes(member.key.c_str(), member.value->text, json);
      continue;
    }
    ordered_json list = ordered_json::array();
    for (const Node* item : member.value->items) list.push_back(item->text);
    json[member.key] = std::move(list);
  }
  return json;
}

/// The fields of an object as in a policy; null when they cannot say what its settings string says.
const Node* fieldsOf(const ObjectRecord& object, Document& document) {
  const policy::ObjectKind* kind = policy::findObjectKind(object.type);
  if (kind == nullptr) return nullptr;
  const Node& entry = policy::entryOf(*kind, object.name, object.content, document);
  return entry.find(policy::kSettingKey) == nullptr ? &entry : nullptr;
}

bool isUsable(const ObjectRecord& object) {
  const policy::ObjectKind* kind = policy::findObjectKind(object.type);
  return kind != nullptr && kind->build(object.content) != nullptr;
}

ordered_json summary(const ObjectRecord& object) {
  ordered_json json = {{"id", object.id}, {"type", kindWord(object.type)}};
  addBytes("name", object.name, json);
  json["in_use"] = object.inUse;
  json["built_in"] = object.builtIn;
  return json;
}

}  // namespace

std::string objectText(const ObjectRecord& object) {
  const policy::ObjectKind* kind = policy::findObjectKind(object.type);
  const std::string word =
      kind != nullptr ? std::string(kind->word) : "object of type " + std::to_string(object.type);
  return word + " " + nameText(object.name) + " (" + std::to_string(object.id) + ")";
}

std::string referrersText(const std::vector<RuleName>& rules) {
  constexpr std::size_t kMostNamed = 20;
  std::string text;
  for (std::size_t i = 0; i < rules.size(); ++i) {
    if (i == kMostNamed) return text + " and " + std::to_string(rules.size() - i) + " more";
    text += (i == 0 ? "rule " : ", rule ") + std::to_string(rules[i].id) + " " +
            nameText(rules[i].name);
  }
  return text;
}

std::string objectListText(const std::vector<ObjectRecord>& objects) {
  if (objects.empty()) return "no objects\n";
  Table table({"ID", "TYPE", "NAME", "IN USE", "BUILT IN"});
  for (const ObjectRecord& object : objects) {
    table.add({std::to_string(object.id), kindWord(object.type), object.name,
               object.inUse ? "yes" : "no", object.builtIn ? "yes" : "no"});
  }
  return table.text();
}

ordered_json objectListJson(const std::vector<ObjectRecord>& objects) {
  ordered_json list = ordered_json::array();
  for (const ObjectRecord& object : objects) list.push_back(summary(object));
  return list;
}

std::string objectEntryText(const ObjectRecord& object) {
  Document document;
  if (const policy::ObjectKind* kind = policy::findObjectKind(object.type)) {
    return policy::writeYaml(policy::entryOf(*kind, object.name, object.content, document));
  }
  Node& entry = document.add(Node::Kind::Map, 0);
  document.addMember(entry, "name", object.name);
  document.addMember(entry, policy::kSettingKey, object.content);
  return policy::writeYaml(entry);
}

std::string objectShowText(const ObjectRecord& object, const std::vector<RuleName>& rules) {
  std::string text = objectText(object) + "\n";
  Document document;
  if (const Node* fields = fieldsOf(object, document)) {
    for (const Node::Member& member : fields->members) {
      if (member.key != "name") text += fieldRow(member.key, valueText(*member.value));
    }
  } else {
    text += row("fields", isUsable(object) ? "none say the same as the settings string"
                                           : "none: its record refuses the settings string, and "
                                             "rules cannot use it");
  }
  text += row("setting", printable(object.content));
  text += row("used by", rules.empty() ? "no rule" : referrersText(rules));
  if (object.builtIn) text += row("built in", "it came with the product");
  text += row("owner", std::to_string(object.owner));
  text += row("added", timeText(object.createdAt, -1));
  text += row("changed", timeText(object.changedAt, -1));
  return text;
}

ordered_json objectShowJson(const ObjectRecord& object, const std::vector<RuleName>& rules) {
  ordered_json json = summary(object);
  json["owner"] = object.owner;
  json["created_at"] = object.createdAt;
  json["changed_at"] = object.changedAt;
  json["usable"] = isUsable(object);
  Document document;
  if (const Node* fields = fieldsOf(object, document)) json["fields"] = fieldsJson(*fields);
  addBytes("setting", object.content, json);
  json["rules"] = ordered_json::array();
  for (const RuleName& rule : rules) {
    ordered_json entry = {{"id", rule.id}};
    addBytes("name", rule.name, entry);
    json["rules"].push_back(std::move(entry));
  }
  return json;
}

ordered_json toJson(const OperationResult& result) {
  ordered_json json = {{"result", result.code}, {"result_name", result.word}};
  if (!result.meaning.empty()) json["error"] = result.meaning;
  return json;
}

}  // namespace gateway::cli
