#include "gateway/policy/loader.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <map>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "gateway/policy/action_registry.h"
#include "gateway/policy/condition.h"
#include "gateway/policy/named_objects.h"
#include "gateway/policy/rule_options.h"
#include "gateway/policy/suggest.h"
#include "gateway/policy/text_file.h"
#include "gateway/policy/yaml_reader.h"

namespace gateway::policy {
namespace {

template <class Number>
bool parseNumber(const Node& value, Number& number) {
  if (value.kind != Node::Kind::Scalar || value.text.empty()) return false;
  const char* end = value.text.data() + value.text.size();
  const auto [rest, fault] = std::from_chars(value.text.data(), end, number);
  return fault == std::errc() && rest == end;
}

class Loader {
 public:
  Loader(Diagnostics& diagnostics, const std::optional<std::string>& folder)
      : diagnostics_(diagnostics), folder_(folder) {}

  LoadedPolicy load(const Node* root) {
    if (root == nullptr || root->kind != Node::Kind::Map) {
      fail(root != nullptr ? root->line : 0, "a policy is a map of lists (write: rules: [])");
      return {};
    }
    std::vector<std::string_view> known = {"rules"};
    for (const ObjectKind& kind : allObjectKinds()) known.push_back(kind.key);
    refuseUnknownKeys(*root, known, "a policy");
    for (const ObjectKind& kind : allObjectKinds()) {
      if (const Node* list = root->find(kind.key)) readObjects(kind, *list);
    }
    readRules(*root);
    return std::move(policy_);
  }

 private:
  void fail(int line, std::string message) { diagnostics_.error(line, place_, std::move(message)); }

  void refuseUnknownKeys(const Node& map, const std::vector<std::string_view>& known,
                         std::string_view what) {
    for (const Node::Member& member : map.members) {
      if (std::find(known.begin(), known.end(), member.key) != known.end()) continue;
      fail(member.line, "unknown key " + inQuotes(member.key) + " in " + std::string(what) + " " +
                            remedyFor(member.key, known));
    }
  }

  // --- Named objects ---

  void readObjects(const ObjectKind& kind, const Node& list) {
    if (list.kind == Node::Kind::Null) return;
    if (list.kind != Node::Kind::List) {
      fail(list.line,
           std::string(kind.key) + " must be a list (write: " + std::string(kind.example) + ")");
      return;
    }
    std::unordered_map<std::string, int> seen;
    for (const Node* item : list.items) readObject(kind, *item, seen);
    place_.clear();
  }

  void readObject(const ObjectKind& kind, const Node& item,
                  std::unordered_map<std::string, int>& seen) {
    place_ = std::string(kind.key);
    if (item.kind != Node::Kind::Map || item.find("name") == nullptr) {
      fail(item.line, "an entry needs a name (write: " + std::string(kind.example) + ")");
      return;
    }
    NamedObjectRow row;
    row.id = static_cast<unsigned int>(policy_.rows.objects.size() + 1);
    row.type = kind.type;
    const bool named = readName(*item.find("name"), row.name);
    if (const auto [first, isNew] = seen.emplace(row.name, item.line); !isNew) {
      fail(item.line, "name " + inQuotes(row.name) + " is taken by line " +
                          std::to_string(first->second) + " (choose another)");
    }
    if (const Node* setting = item.find(kSettingKey)) {
      refuseUnknownKeys(item, {"name", kSettingKey}, "an entry with a settings string");
      readSetting(*setting, row.setting);
      // The store keeps what no record accepts, too; only a rule cannot use it.
      if (kind.build(row.setting) == nullptr) unusable_.insert(row.id);
    } else {
      encodeObject(kind, item, named, row);
    }
    objects_[kind.type].emplace(row.name, row.id);
    policy_.rows.objects.push_back(std::move(row));
    policy_.lines.objects.push_back(item.line);
  }

  void encodeObject(const ObjectKind& kind, const Node& item, bool named, NamedObjectRow& row) {
    refuseUnknownKeys(item, {kind.keys.begin(), kind.keys.end()}, "an entry");
    const bool encoded =
        kind.encode({item, row.name, folder_}, row.setting,
                    [this](int line, const std::string& message) { fail(line, message); });
    // The scanner side builds the record from this string: what it refuses must not get so far.
    if (named && encoded && kind.build(row.setting) == nullptr) {
      fail(item.line, "the record does not accept its own settings string");
    }
  }

  void readSetting(const Node& value, std::string& setting) {
    setting = value.text;
    if (!isValue(value)) fail(value.line, "'setting' must be a settings string (put it in quotes)");
  }

  bool readName(const Node& value, std::string& name) {
    name = value.text;
    // Who writes bytes means them: the store takes any name.
    if (value.kind == Node::Kind::Binary) return true;
    if (value.kind == Node::Kind::Scalar && isWritableName(name)) return true;
    fail(value.line, "a name is one line of 1 to 255 bytes, not " + inQuotes(name));
    return false;
  }

  // --- Rules ---

  void readRules(const Node& root) {
    const Node* rules = root.find("rules");
    if (rules == nullptr) {
      fail(root.line, "the key 'rules' is missing (write 'rules: []' for a policy without rules)");
      return;
    }
    if (rules->kind != Node::Kind::List) {
      fail(rules->line, "'rules' must be a list (write 'rules: []' for a policy without rules)");
      return;
    }
    for (const Node* item : rules->items) readRule(*item);
    place_.clear();
  }

  void readRule(const Node& item) {
    place_ = "rule number " + std::to_string(++position_) + " of the list";
    if (item.kind != Node::Kind::Map) {
      fail(item.line, "a rule is a map of id, name, when and actions");
      return;
    }
    RuleRow row;
    row.order = position_;
    readId(item, row.id);
    refuseUnknownKeys(item, {"id", "name", "enabled", "when", "actions", "on_failure", "verdict"},
                      "a rule");
    if (const Node* name = item.find("name")) {
      readName(*name, row.name);
    } else {
      row.name = "rule " + std::to_string(row.id);
    }
    if (const Node* enabled = item.find("enabled")) readFlag(*enabled, row.enabled);
    readWhen(item, row);
    const FaultSink fault = [this](int line, std::string text) { fail(line, std::move(text)); };
    if (const Node* value = item.find("on_failure")) readOnFailure(*value, row.onFailure, fault);
    if (const Node* value = item.find("verdict")) readVerdict(*value, row.verdict, fault);
    SourceLines::Rule lines;
    lines.line = item.line;
    readActions(item, row, lines);
    policy_.rows.rules.push_back(std::move(row));
    policy_.lines.rules.push_back(std::move(lines));
  }

  void readId(const Node& item, unsigned int& id) {
    const Node* value = item.find("id");
    if (value == nullptr) {
      fail(item.line, "the key 'id' is missing (give the rule a number of its own)");
      return;
    }
    if (!parseNumber(*value, id) || id == 0) {
      fail(value->line,
           "id " + inQuotes(value->text) + " (an id is a whole number from 1 to 4294967295)");
      id = 0;
      return;
    }
    place_ = "rule " + std::to_string(id);
    if (const auto [first, isNew] = ids_.emplace(id, value->line); !isNew) {
      fail(value->line, "id " + std::to_string(id) + " is taken by the rule on line " +
                            std::to_string(first->second) + " (choose a number never used before)");
    }
  }

  void readFlag(const Node& value, bool& flag) {
    if (value.text == "true" || value.text == "yes") {
      flag = true;
    } else if (value.text == "false" || value.text == "no") {
      flag = false;
    } else {
      fail(value.line, "'enabled' is " + inQuotes(value.text) + " (write true or false)");
    }
  }

  void readWhen(const Node& item, RuleRow& row) {
    const Node* when = item.find("when");
    if (when == nullptr) {
      fail(item.line, "the key 'when' is missing (write 'when: always' for every message)");
      return;
    }
    const auto condition = parseCondition(
        *when, [this](int line, std::string message) { fail(line, std::move(message)); });
    if (condition) row.condition = canonicalText(*condition);
  }

  void readActions(const Node& item, RuleRow& row, SourceLines::Rule& lines) {
    const Node* actions = item.find("actions");
    if (actions == nullptr) {
      fail(item.line, "the key 'actions' is missing (write 'actions: []' to only report matches)");
      return;
    }
    if (actions->kind != Node::Kind::List) {
      fail(actions->line, "'actions' must be a list (write: actions: [delete])");
      return;
    }
    for (const Node* action : actions->items) {
      readAction(*action, row);
      lines.actions.push_back(action->line);
    }
  }

  /// "{type: postpone, setting: '...'}": a settings string as it is.
  void readStoredAction(const Node& item, ActionRow& action) {
    refuseUnknownKeys(item, {"type", kSettingKey}, "an action with a settings string");
    const Node* type = item.find("type");
    int code = 0;
    const ActionSpec* spec = nullptr;
    if (type != nullptr) {
      spec = parseNumber(*type, code) ? findAction(code) : findAction(type->text);
    }
    if (spec == nullptr) {
      fail(item.line, "an action with a settings string needs its type, a name or a code " +
                          remedyFor(type != nullptr ? type->text : "", actionNames()));
      return;
    }
    action.type = spec->type;
    readSetting(*item.find(kSettingKey), action.setting);
    const std::string called = "action '" + std::string(spec->name) + "' ";
    if (spec->objectType != 0) {
      fail(item.line, called + "is written with names (write: " + std::string(spec->example) + ")");
    } else if (spec->build(action.setting) == nullptr) {
      fail(item.line, called + "refuses its setting " + inQuotes(action.setting));
    }
  }

  /// "delete", "{postpone: '08:30'}".
  void readAction(const Node& item, RuleRow& row) {
    if (item.kind == Node::Kind::Map && item.find(kSettingKey) != nullptr) {
      readStoredAction(item, row.actions.emplace_back());
      return;
    }
    static const Node kNoValue;
    std::string_view name = item.text;
    const Node* value = &kNoValue;
    if (item.kind == Node::Kind::Map && item.members.size() == 1) {
      name = item.members.front().key;
      value = item.members.front().value;
    } else if (item.kind != Node::Kind::Scalar) {
      fail(item.line, item.members.size() > 1
                          ? "an action has one key, this one has '" + item.members[0].key +
                                "' and '" + item.members[1].key + "' (start each with its own '-')"
                          : "an action is a name, or a name with a value (write: delete)");
      row.actions.emplace_back();
      return;
    }
    ActionRow action;
    readNamedAction(item.line, name, *value, action);
    row.actions.push_back(std::move(action));
  }

  void readNamedAction(int line, std::string_view name, const Node& value, ActionRow& action) {
    const ActionSpec* spec = findAction(name);
    if (spec == nullptr) {
      fail(line, "unknown action " + inQuotes(name) + " " + remedyFor(name, actionNames()));
      return;
    }
    action.type = spec->type;
    const std::string called = "action '" + std::string(name) + "' ";
    if (spec->takesValue() && value.kind == Node::Kind::Null) {
      fail(line, called + "needs a value (write: " + std::string(spec->example) + ")");
      return;
    }
    Document ids;
    if (spec->objectType != 0 && !resolveObjects(*spec, value, called, ids)) return;
    const bool encoded = spec->encode(spec->objectType != 0 ? *ids.root() : value, action.setting,
                                      [&](int valueLine, const std::string& message) {
                                        fail(valueLine > 0 ? valueLine : line, called + message);
                                      });
    // The scanner side builds the action from this string: what it refuses must not get so far.
    if (encoded && spec->build(action.setting) == nullptr) {
      fail(line, called + "does not accept its own settings string " + inQuotes(action.setting));
    }
  }

  /// Puts the ids of the objects that \p value names into \p ids.
  bool resolveObjects(const ActionSpec& spec, const Node& value, const std::string& called,
                      Document& ids) {
    if (!spec.takesSeveral || value.kind != Node::Kind::List || value.items.empty()) {
      Node& id = ids.add(Node::Kind::Scalar, value.line);
      ids.setRoot(&id);
      return resolveObject(spec, value, called, id);
    }
    Node& list = ids.add(Node::Kind::List, value.line);
    ids.setRoot(&list);
    bool good = true;
    for (const Node* item : value.items) {
      Node& id = ids.add(Node::Kind::Scalar, item->line);
      list.items.push_back(&id);
      good = resolveObject(spec, *item, called, id) && good;
    }
    return good;
  }

  /// Puts the id of the object that \p value names into \p id.
  bool resolveObject(const ActionSpec& spec, const Node& value, const std::string& called,
                     Node& id) {
    const ObjectKind& kind = *findObjectKind(spec.objectType);
    const std::map<std::string, unsigned int>& objects = objects_[kind.type];
    const auto object = objects.find(value.text);
    if (isValue(value) && object != objects.end()) {
      if (unusable_.contains(object->second)) {
        fail(value.line, called + "names the " + std::string(kind.word) + " " +
                             inQuotes(value.text) +
                             ", whose settings string its record refuses (correct it)");
        return false;
      }
      id.kind = Node::Kind::Scalar;
      id.line = value.line;
      id.text = std::to_string(object->second);
      return true;
    }
    std::string remedy = "(write: " + std::string(spec.example) + ")";
    if (value.kind == Node::Kind::Scalar) {
      std::vector<std::string_view> names;
      for (const auto& [name, unused] : objects) names.push_back(name);
      remedy = names.empty() ? "(declare it under " + std::string(kind.key) +
                                   ": - {name: " + value.text + std::string(kind.required) + "})"
                             : remedyFor(value.text, names);
    }
    fail(value.line, called + "names no " + std::string(kind.word) + ": " + inQuotes(value.text) +
                         " " + remedy);
    return false;
  }

  Diagnostics& diagnostics_;
  const std::optional<std::string>& folder_;
  LoadedPolicy policy_;
  std::map<unsigned int, std::map<std::string, unsigned int>> objects_;  ///< type, name, id
  std::unordered_set<unsigned int> unusable_;                            ///< ids
  std::string place_;
  unsigned int position_ = 0;
  std::unordered_map<unsigned int, int> ids_;
};

}  // namespace

std::optional<LoadedPolicy> loadPolicy(std::string_view text, Diagnostics& diagnostics,
                                       const std::optional<std::string>& folder) {
  const std::unique_ptr<Document> document = readYaml(text, diagnostics);
  if (document == nullptr) return std::nullopt;
  LoadedPolicy policy = Loader(diagnostics, folder).load(document->root());
  if (diagnostics.hasErrors()) return std::nullopt;
  return policy;
}

std::optional<LoadedPolicy> loadPolicyFile(const std::string& path, Diagnostics& diagnostics) {
  std::string text;
  const std::string source = path == "-" ? "/dev/stdin" : path;
  std::string fault = readTextFile(source, FileKind::Given, YamlLimits().bytes, text);
  if (fault == "is a folder") fault += " (name the policy file in it)";
  if (!fault.empty()) {
    diagnostics.error(0, "", fault);
    return std::nullopt;
  }
  return loadPolicy(text, diagnostics, path.substr(0, path.rfind('/') + 1));
}

}  // namespace gateway::policy
