#include "gateway/policy/policy_entries.h"

#include <utility>
#include <vector>

#include "gateway/policy/action_registry.h"
#include "gateway/policy/diagnostics.h"
#include "gateway/policy/named_objects.h"
#include "gateway/policy/rule_options.h"
#include "gateway/policy/yaml_reader.h"

namespace gateway::policy {
namespace {

/// Copies \p node, which may belong to another document. Trees are as deep as their readers allow.
const Node& copied(const Node& node, Document& document) {
  Node& copy = document.add(node.kind, 0);
  copy.text = node.text;
  for (const Node* item : node.items) copy.items.push_back(&copied(*item, document));
  for (const Node::Member& member : node.members) {
    copy.members.push_back({member.key, 0, &copied(*member.value, document)});
  }
  return copy;
}

bool gives(const ActionSpec& spec, const Node& value, const std::string& setting) {
  std::string again;
  return spec.encode(value, again, [](int, const std::string&) {}) && again == setting;
}

/// The value whose settings string is \p setting; null when there is none.
const Node* valueOf(const ActionSpec& spec, const std::string& setting, Document& document) {
  std::string text;
  if (!spec.decode(setting, text)) return nullptr;
  if (!spec.takesValue()) {
    const Node& nothing = document.add(Node::Kind::Null, 0);
    return gives(spec, nothing, setting) ? &nothing : nullptr;
  }
  const Node& plain = document.addValue(text);
  if (gives(spec, plain, setting)) return &plain;
  // What cannot be one text comes as a map in braces.
  Diagnostics diagnostics("value");
  const auto read = text.starts_with('{') ? readYaml(text, diagnostics) : nullptr;
  if (read == nullptr || read->root() == nullptr || !gives(spec, *read->root(), setting)) {
    return nullptr;
  }
  return &copied(*read->root(), document);
}

/// The names of the objects that \p setting refers to; null when it cannot be said by names.
const Node* namesOf(const ActionSpec& spec, const std::string& setting, const ObjectNames& names,
                    Document& document) {
  Node& ids = document.add(Node::Kind::List, 0);
  Node& list = document.add(Node::Kind::List, 0);
  for (const unsigned int id : spec.objectIds(setting)) {
    const NamedObjectRow* object = names.find(id, spec.objectType);
    if (object == nullptr) return nullptr;
    ids.items.push_back(&document.addValue(std::to_string(id)));
    list.items.push_back(&nameValue(object->name, document));
  }
  if (ids.items.empty()) return nullptr;
  const bool isOne = ids.items.size() == 1;
  if (!gives(spec, isOne ? *ids.items.front() : ids, setting)) return nullptr;
  return isOne ? list.items.front() : &list;
}

}  // namespace

ObjectNames::ObjectNames(const std::vector<NamedObjectRow>& rows) {
  for (const NamedObjectRow& row : rows) byId_.emplace(row.id, &row);
}

const NamedObjectRow* ObjectNames::find(unsigned int id, unsigned int type) const {
  const auto object = byId_.find(id);
  return object != byId_.end() && object->second->type == type ? object->second : nullptr;
}

const Node& actionEntry(const ActionRow& row, const ObjectNames& names, Document& document) {
  const ActionSpec* spec = findAction(row.type);
  const Node* value = nullptr;
  if (spec != nullptr) {
    value = spec->objectType != 0 ? namesOf(*spec, row.setting, names, document)
                                  : valueOf(*spec, row.setting, document);
  }
  if (value != nullptr && value->kind == Node::Kind::Null) {
    return document.addValue(std::string(spec->name));
  }
  Node& entry = document.add(Node::Kind::Map, 0);
  if (value != nullptr) {
    entry.members.push_back({std::string(spec->name), 0, value});
  } else {
    document.addMember(entry, "type",
                       spec != nullptr ? std::string(spec->name) : std::to_string(row.type));
    document.addMember(entry, kSettingKey, row.setting);
  }
  return entry;
}

const Node& ruleEntry(const RuleRow& row, const ObjectNames& names, Document& document) {
  Node& entry = document.add(Node::Kind::Map, 0);
  document.addMember(entry, "id", std::to_string(row.id));
  entry.members.push_back({"name", 0, &nameValue(row.name, document)});
  if (!row.enabled) document.addMember(entry, "enabled", "false");
  std::string error;
  const auto condition = readJson(row.condition, error);
  const bool isRead = condition != nullptr && condition->root() != nullptr;
  entry.members.push_back(
      {"when", 0,
       isRead ? &copied(*condition->root(), document) : &document.addValue(row.condition)});
  if (row.onFailure != OnFailure::TempFail) {
    document.addMember(entry, "on_failure", std::string(wordOf(row.onFailure)));
  }
  if (row.verdict.kind != RuleVerdict::Kind::None) {
    Node& verdict = document.add(Node::Kind::Map, 0);
    document.addMember(verdict, wordOf(row.verdict.kind), row.verdict.text);
    entry.members.push_back({"verdict", 0, &verdict});
  }
  Node& actions = document.add(Node::Kind::List, 0);
  for (const ActionRow& action : row.actions) {
    actions.items.push_back(&actionEntry(action, names, document));
  }
  entry.members.push_back({"actions", 0, &actions});
  return entry;
}

const Node& policyTree(const PolicyRows& rows, Document& document) {
  Node& tree = document.add(Node::Kind::Map, 0);
  for (const ObjectKind& kind : allObjectKinds()) {
    Node& list = document.add(Node::Kind::List, 0);
    for (const NamedObjectRow& row : rows.objects) {
      if (row.type != kind.type) continue;
      list.items.push_back(&entryOf(kind, row.name, row.setting, document));
    }
    if (!list.items.empty()) tree.members.push_back({std::string(kind.key), 0, &list});
  }
  const ObjectNames names(rows.objects);
  Node& rules = document.add(Node::Kind::List, 0);
  for (const RuleRow& row : rows.rules) rules.items.push_back(&ruleEntry(row, names, document));
  tree.members.push_back({"rules", 0, &rules});
  return tree;
}

}  // namespace gateway::policy
