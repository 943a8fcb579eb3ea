#include "gateway/cli/object_content.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "gateway/cli/startup.h"
#include "gateway/cli/table.h"
#include "gateway/policy/suggest.h"
#include "gateway/policy/text_file.h"
#include "gateway/policy/yaml_reader.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

using host::core::printable;
using policy::Document;
using policy::Node;
using policy::ObjectKind;

/// Keys of which one says in place what the other says by the name of a file.
constexpr std::pair<std::string_view, std::string_view> kAlternatives[] = {{"text", "file"},
                                                                           {"body", "body_file"}};

void drop(Node& entry, std::string_view key) {
  std::erase_if(entry.members, [key](const Node::Member& member) { return member.key == key; });
}

std::string_view alternativeTo(std::string_view key) {
  for (const auto& [one, other] : kAlternatives) {
    if (key == one) return other;
    if (key == other) return one;
  }
  return {};
}

bool readWhole(const std::string& path, std::string& bytes) {
  const std::string source = path == "-" ? "/dev/stdin" : path;
  const std::size_t most = policy::YamlLimits().bytes;
  std::string fault = policy::readTextFile(source, policy::FileKind::Given, most, bytes);
  if (fault.empty() && bytes.size() > most) {
    fault = "is longer than " + std::to_string(most) + " bytes";
  }
  if (!fault.empty()) complain(printable(path) + " " + fault);
  return fault.empty();
}

class ContentMaker {
 public:
  ContentMaker(const ObjectKind& kind, const ContentOptions& options, const ObjectTexts* present)
      : kind_(kind), options_(options), present_(present) {}

  bool make(ObjectTexts& wanted) {
    if (!isOneWay()) return false;
    bool good = true;
    if (options_.setting) {
      wanted.setting = *options_.setting;
    } else if (!options_.settingFile.empty()) {
      good = readWhole(options_.settingFile, wanted.setting);
    } else if (!options_.entryFile.empty()) {
      good = fromFile(wanted);
    } else {
      good = fromFields(wanted);
    }
    if (present_ != nullptr && wanted.name.empty()) wanted.name = present_->name;
    return good && isAccepted(wanted.setting);
  }

 private:
  bool isOneWay() const {
    const int ways = int{!options_.fields.empty()} + int{!options_.entryFile.empty()} +
                     int{options_.setting.has_value()} + int{!options_.settingFile.empty()};
    if (ways > 1) {
      complain(
          "what the object holds is said in more than one way (give fields, --from, --setting "
          "or --setting-file)");
    }
    return ways <= 1;
  }

  /// The operations themselves answer for an empty text.
  bool isAccepted(const std::string& setting) const {
    if (setting.empty() || kind_.build(setting) != nullptr) return true;
    const bool hasNul = setting.find('\0') != std::string::npos;
    complain("the record of a " + std::string(kind_.word) + " refuses the settings string '" +
             shortened(setting, 60) + "'" +
             (hasNul ? " (it holds a NUL, where it would end)"
                     : " (kavi object show prints what one looks like)"));
    return false;
  }

  bool fromFile(ObjectTexts& wanted) {
    std::string text;
    if (!readWhole(options_.entryFile, text)) return false;
    policy::Diagnostics diagnostics(options_.entryFile);
    const std::unique_ptr<Document> document = policy::readYaml(text, diagnostics);
    const Node* entry = document != nullptr ? document->root() : nullptr;
    if (entry != nullptr && entry->kind == Node::Kind::List && entry->items.size() == 1) {
      entry = entry->items.front();
    }
    if (document != nullptr && (entry == nullptr || entry->kind != Node::Kind::Map)) {
      diagnostics.error(entry != nullptr ? entry->line : 0, "",
                        "it holds no entry (write: " + std::string(kind_.example) + ")");
    }
    complain(diagnostics);
    if (diagnostics.hasErrors()) return false;
    const std::size_t slash = options_.entryFile.rfind('/');
    folder_ = options_.entryFile.substr(0, slash == std::string::npos ? 0 : slash + 1);
    source_ = printable(options_.entryFile);
    return takeName(*entry, wanted.name) && encode(*entry, wanted);
  }

  bool takeName(const Node& entry, std::string& name) const {
    const Node* value = entry.find("name");
    if (value == nullptr) return true;
    if (!policy::isValue(*value)) {
      complain(source_ + ": the name must be a text");
      return false;
    }
    if (!name.empty() && name != value->text) {
      complain(source_ + ": the entry calls it " + nameText(value->text) + ", the command " +
               nameText(name) + " (leave one of them out)");
      return false;
    }
    name = value->text;
    return true;
  }

  bool fromFields(ObjectTexts& wanted) {
    Document document;
    Node& entry = document.add(Node::Kind::Map, 0);
    if (present_ != nullptr && !takePresent(document, entry)) {
      wanted.setting = present_->setting;
      if (options_.fields.empty()) return true;
      complain("the object's settings string '" + shortened(wanted.setting, 60) +
               "' says more than fields can (give all of it: --from, --setting or --setting-file)");
      return false;
    }
    std::vector<std::string> given;
    for (const std::string& field : options_.fields) {
      if (!addField(field, given, document, entry)) return false;
    }
    folder_ = "";
    return encode(entry, wanted);
  }

  /// Puts the fields that the object has so far into \p entry. \return false when there are none
  /// that say the same.
  bool takePresent(Document& document, Node& entry) const {
    const Node& present = policy::entryOf(kind_, present_->name, present_->setting, document);
    if (present.find(policy::kSettingKey) != nullptr) return false;
    entry.members = present.members;
    drop(entry, "name");
    return true;
  }

  /// Puts "KEY=VALUE" into \p entry. A key that is given again makes a list.
  static bool addField(const std::string& field, std::vector<std::string>& given,
                       Document& document, Node& entry) {
    const std::size_t equals = field.find('=');
    const std::string key = field.substr(0, equals);
    if (equals == std::string::npos || key.empty() || key == "name") {
      complain(nameText(field) + (key == "name"
                                      ? " is no field (the name is an argument of its own)"
                                      : " is no field (write KEY=VALUE)"));
      return false;
    }
    if (std::find(given.begin(), given.end(), key) == given.end()) {
      drop(entry, key);
      drop(entry, alternativeTo(key));
      given.push_back(key);
    }
    const std::string value = field.substr(equals + 1);
    if (value.empty()) return true;
    const Node* before = entry.find(key);
    if (before == nullptr) {
      document.addMember(entry, key, value);
      return true;
    }
    Node& list = document.add(Node::Kind::List, 0);
    list.items = before->kind == Node::Kind::List ? before->items : std::vector{before};
    list.items.push_back(&document.addValue(value));
    drop(entry, key);
    entry.members.push_back({key, 0, &list});
    return true;
  }

  bool encode(const Node& entry, ObjectTexts& wanted) const {
    std::vector<std::string_view> known(kind_.keys.begin(), kind_.keys.end());
    if (const Node* raw = entry.find(policy::kSettingKey)) {
      known = {"name", policy::kSettingKey};
      wanted.setting = raw->text;
    }
    bool good = true;
    const auto fault = [&](int line, const std::string& message) {
      const std::string place = source_ + (line > 0 ? ":" + std::to_string(line) : "");
      complain((place.empty() ? place : place + ": ") + printable(message));
      good = false;
    };
    for (const Node::Member& member : entry.members) {
      if (std::find(known.begin(), known.end(), member.key) != known.end()) continue;
      fault(member.line, "unknown field " + policy::inQuotes(member.key) + " of a " +
                             std::string(kind_.word) + " " + policy::remedyFor(member.key, known));
    }
    if (entry.find(policy::kSettingKey) != nullptr) return good;
    const bool keepsName = wanted.name.empty() && present_ != nullptr;
    const std::string& name = keepsName ? present_->name : wanted.name;
    const bool isTyped = source_.empty();
    return kind_.encode({entry, name, folder_, isTyped}, wanted.setting, fault) && good;
  }

  const ObjectKind& kind_;
  const ContentOptions& options_;
  const ObjectTexts* present_;
  std::optional<std::string> folder_;
  std::string source_;  ///< what messages call the entry; empty for fields
};

}  // namespace

bool makeContent(const ObjectKind& kind, const ContentOptions& options, const ObjectTexts* present,
                 ObjectTexts& wanted) {
  return ContentMaker(kind, options, present).make(wanted);
}

}  // namespace gateway::cli
