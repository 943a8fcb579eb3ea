#include "gateway/policy/condition.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include "gateway/policy/patterns.h"
#include "gateway/policy/suggest.h"
#include "gateway/policy/yaml_reader.h"

namespace gateway::policy {
namespace {

using Kind = Condition::Kind;

/// A pattern longer than this is no pattern that anybody wrote.
constexpr std::size_t kMaxPatternLength = 4096;

/// How the value of a condition is written.
enum class Form { Word, Header, Regexes, Sizes, Globs, Children, Child };

struct KindRow {
  Kind kind;
  std::string_view key;
  Form form;
  std::string_view example;
};

/// One row for each kind of condition; the reader, the writer and the messages go by it.
constexpr KindRow kKinds[] = {
    {Kind::Always, "always", Form::Word, "always"},
    {Kind::Header, "header", Form::Header, "{header: {name: X-Spam-Flag, matches: \"^yes\"}}"},
    {Kind::Subject, "subject", Form::Regexes, "{subject: {matches: \"invoice\"}}"},
    {Kind::Sender, "sender", Form::Regexes, "{sender: {matches: \"@example\\\\.com$\"}}"},
    {Kind::Recipient, "recipient", Form::Regexes, "{recipient: {matches: \"^sales@\"}}"},
    {Kind::Size, "size", Form::Sizes, "{size: {over: 10MB}}"},
    {Kind::AttachmentName, "attachment_name", Form::Globs,
     "{attachment_name: [\"*.exe\", \"*.scr\"]}"},
    {Kind::AttachmentType, "attachment_type", Form::Globs, "{attachment_type: [\"image/*\"]}"},
    {Kind::All, "all", Form::Children, "{all: [CONDITION, CONDITION]}"},
    {Kind::Any, "any", Form::Children, "{any: [CONDITION, CONDITION]}"},
    {Kind::Not, "not", Form::Child, "{not: CONDITION}"},
};

const KindRow& rowOf(Kind kind) {
  return *std::find_if(std::begin(kKinds), std::end(kKinds),
                       [kind](const KindRow& row) { return row.kind == kind; });
}

const KindRow* rowOf(std::string_view key) {
  const auto* row = std::find_if(std::begin(kKinds), std::end(kKinds),
                                 [key](const KindRow& candidate) { return candidate.key == key; });
  return row == std::end(kKinds) ? nullptr : row;
}

std::vector<std::string_view> allKeys() {
  std::vector<std::string_view> keys;
  for (const KindRow& row : kKinds) keys.push_back(row.key);
  return keys;
}

struct Unit {
  std::string_view name;
  std::uint64_t bytes;
};

/// Sizes of mail are counted in powers of 1024.
constexpr Unit kUnits[] = {
    {"gb", std::uint64_t{1} << 30},
    {"mb", std::uint64_t{1} << 20},
    {"kb", std::uint64_t{1} << 10},
    {"g", std::uint64_t{1} << 30},
    {"m", std::uint64_t{1} << 20},
    {"k", std::uint64_t{1} << 10},
    {"b", 1},
    {"", 1},
};

std::optional<std::uint64_t> parseSize(std::string_view text) {
  std::uint64_t number = 0;
  const auto [rest, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (fault != std::errc() || rest == text.data()) return std::nullopt;
  std::string unit;
  for (const char* c = rest; c != text.data() + text.size(); ++c) {
    if (*c == ' ' && unit.empty()) continue;
    unit += *c >= 'A' && *c <= 'Z' ? static_cast<char>(*c - 'A' + 'a') : *c;
  }
  for (const Unit& known : kUnits) {
    if (unit != known.name) continue;
    if (number > std::numeric_limits<std::uint64_t>::max() / known.bytes) return std::nullopt;
    return number * known.bytes;
  }
  return std::nullopt;
}

bool isFieldName(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(),
                                      [](char c) { return c > 32 && c < 127 && c != ':'; });
}

class Reader {
 public:
  explicit Reader(const FaultSink& fault) : fault_(fault) {}

  bool failed() const { return failed_; }

  Condition read(const Node& value, int depth) {
    Condition condition;
    condition.line = value.line;
    if (value.kind == Node::Kind::Scalar) {
      if (value.text != "always") faultyWord(value);
      return condition;
    }
    if (value.kind != Node::Kind::Map || value.members.size() != 1) {
      faultyShape(value);
      return condition;
    }
    const Node::Member& member = value.members.front();
    const KindRow* row = rowOf(member.key);
    if (row == nullptr || row->form == Form::Word) {
      fail(member.line, row != nullptr ? "'always' takes no value (write: when: always)"
                                       : "unknown condition " + inQuotes(member.key) + " " +
                                             remedyFor(member.key, allKeys()));
      return condition;
    }
    condition.kind = row->kind;
    condition.line = member.line;
    readForm(*row, *member.value, depth, condition);
    return condition;
  }

 private:
  void fail(int line, std::string message) {
    failed_ = true;
    fault_(line, std::move(message));
  }

  void faultyWord(const Node& value) {
    if (const KindRow* row = rowOf(value.text)) {
      fail(value.line, "condition " + inQuotes(value.text) +
                           " needs a value (write: " + std::string(row->example) + ")");
    } else {
      fail(value.line,
           "unknown condition " + inQuotes(value.text) + " " + remedyFor(value.text, allKeys()));
    }
  }

  void faultyShape(const Node& value) {
    if (value.kind == Node::Kind::List) {
      fail(value.line, "a list is no condition (write: {all: […]} or {any: […]})");
    } else if (value.members.size() > 1) {
      fail(value.line, "a condition has one key, this one has '" + value.members[0].key +
                           "' and '" + value.members[1].key +
                           "' (join them: {all: […]} or {any: […]})");
    } else {
      fail(value.line, "an empty condition (write 'always' for every message)");
    }
  }

  void readForm(const KindRow& row, const Node& value, int depth, Condition& condition) {
    switch (row.form) {
      case Form::Word:
        return;
      case Form::Header:
        return readHeader(row, value, condition);
      case Form::Regexes:
        if (value.kind != Node::Kind::Map) {
          readRegexes(row, value, condition);
        } else if (expectMap(row, value, {"matches"}) && require(row, value, "matches")) {
          readRegexes(row, *value.find("matches"), condition);
        }
        return;
      case Form::Sizes:
        return readSizes(row, value, condition);
      case Form::Globs:
        return readTexts(row, value, condition.patterns);
      case Form::Children:
        return readChildren(row, value, depth, condition);
      case Form::Child:
        if (mayNest(value, depth)) condition.children.push_back(read(value, depth + 1));
        return;
    }
  }

  bool expectMap(const KindRow& row, const Node& value, const std::vector<std::string_view>& keys) {
    if (value.kind != Node::Kind::Map) {
      fail(value.line, "condition '" + std::string(row.key) +
                           "' needs keys (write: " + std::string(row.example) + ")");
      return false;
    }
    for (const Node::Member& member : value.members) {
      if (std::find(keys.begin(), keys.end(), member.key) == keys.end()) {
        fail(member.line, "unknown key " + inQuotes(member.key) + " in condition '" +
                              std::string(row.key) + "' " + remedyFor(member.key, keys));
      }
    }
    return true;
  }

  bool require(const KindRow& row, const Node& value, std::string_view key) {
    if (value.find(key) != nullptr) return true;
    fail(value.line, "condition '" + std::string(row.key) + "' needs '" + std::string(key) +
                         "' (write: " + std::string(row.example) + ")");
    return false;
  }

  void readHeader(const KindRow& row, const Node& value, Condition& condition) {
    if (!expectMap(row, value, {"name", "matches"}) || !require(row, value, "name")) return;
    const Node& name = *value.find("name");
    condition.name = name.text;
    if (name.kind != Node::Kind::Scalar || !isFieldName(name.text)) {
      fail(name.line, "header name " + inQuotes(name.text) +
                          " (write the name alone, without ':' and blanks)");
    }
    if (const Node* matches = value.find("matches")) readRegexes(row, *matches, condition);
  }

  void readRegexes(const KindRow& row, const Node& value, Condition& condition) {
    const std::size_t before = condition.patterns.size();
    readTexts(row, value, condition.patterns);
    for (std::size_t i = before; i < condition.patterns.size(); ++i) {
      const std::string reason = Patterns::regexFault(condition.patterns[i]);
      if (reason.empty()) continue;
      const Node& place = value.kind == Node::Kind::List ? *value.items[i - before] : value;
      fail(place.line, "regular expression " + inQuotes(condition.patterns[i]) + ": " + reason);
    }
  }

  /// One text, or a list of them.
  void readTexts(const KindRow& row, const Node& value, std::vector<std::string>& texts) {
    std::vector<const Node*> items;
    if (value.kind == Node::Kind::List) {
      items = value.items;
    } else {
      items.push_back(&value);
    }
    if (items.empty()) {
      fail(value.line, "condition '" + std::string(row.key) +
                           "' has an empty list (write: " + std::string(row.example) + ")");
    }
    for (const Node* item : items) {
      if (item->kind != Node::Kind::Scalar || item->text.empty()) {
        fail(item->line, "condition '" + std::string(row.key) +
                             "' needs texts (write: " + std::string(row.example) + ")");
        texts.emplace_back();
      } else if (item->text.size() > kMaxPatternLength) {
        fail(item->line, "a pattern of more than " + std::to_string(kMaxPatternLength) +
                             " characters (write several shorter ones)");
        texts.emplace_back();
      } else {
        texts.push_back(item->text);
      }
    }
  }

  void readSizes(const KindRow& row, const Node& value, Condition& condition) {
    if (!expectMap(row, value, {"over", "under"})) return;
    readSize(value.find("over"), condition.over);
    readSize(value.find("under"), condition.under);
    if (value.find("over") == nullptr && value.find("under") == nullptr) {
      fail(value.line,
           "condition 'size' needs 'over' or 'under' (write: " + std::string(row.example) + ")");
    }
    if (condition.over && condition.under && *condition.over >= *condition.under) {
      fail(value.line, "no size is over " + std::to_string(*condition.over) + " and under " +
                           std::to_string(*condition.under) + " bytes (swap them)");
    }
  }

  void readSize(const Node* value, std::optional<std::uint64_t>& size) {
    if (value == nullptr) return;
    if (value->kind == Node::Kind::Scalar) size = parseSize(value->text);
    if (!size) {
      fail(value->line, "size " + inQuotes(value->text) +
                            " (write a whole number of bytes, kB, MB or GB: 10MB)");
    }
  }

  void readChildren(const KindRow& row, const Node& value, int depth, Condition& condition) {
    if (value.kind != Node::Kind::List || value.items.empty()) {
      fail(value.line, "condition '" + std::string(row.key) +
                           "' needs a list of conditions (write: " + std::string(row.example) +
                           ")");
      return;
    }
    if (!mayNest(value, depth)) return;
    for (const Node* item : value.items) condition.children.push_back(read(*item, depth + 1));
  }

  bool mayNest(const Node& value, int depth) {
    if (depth < kMaxConditionDepth) return true;
    fail(value.line, "conditions nested more than " + std::to_string(kMaxConditionDepth) +
                         " deep (write it flatter, or as two rules)");
    return false;
  }

  const FaultSink& fault_;
  bool failed_ = false;
};

nlohmann::ordered_json toJson(const Condition& condition) {
  const KindRow& row = rowOf(condition.kind);
  nlohmann::ordered_json value = nlohmann::ordered_json::object();
  switch (row.form) {
    case Form::Word:
      return row.key;
    case Form::Header:
      value["name"] = condition.name;
      if (!condition.patterns.empty()) value["matches"] = condition.patterns;
      break;
    case Form::Regexes:
      value["matches"] = condition.patterns;
      break;
    case Form::Sizes:
      if (condition.over) value["over"] = *condition.over;
      if (condition.under) value["under"] = *condition.under;
      break;
    case Form::Globs:
      value = condition.patterns;
      break;
    case Form::Children:
      value = nlohmann::ordered_json::array();
      for (const Condition& child : condition.children) value.push_back(toJson(child));
      break;
    case Form::Child:
      value = toJson(condition.children.front());
      break;
  }
  nlohmann::ordered_json whole;
  whole[std::string(row.key)] = std::move(value);
  return whole;
}

}  // namespace

std::optional<Condition> parseCondition(const Node& value, const FaultSink& fault) {
  Reader reader(fault);
  Condition condition = reader.read(value, 0);
  if (reader.failed()) return std::nullopt;
  return condition;
}

std::string canonicalText(const Condition& condition) { return toJson(condition).dump(); }

std::optional<Condition> parseCanonicalText(std::string_view text, const FaultSink& fault) {
  std::string error;
  const std::unique_ptr<Document> document = readJson(text, error);
  if (document == nullptr || document->root() == nullptr) {
    fault(0, "stored condition: " + error);
    return std::nullopt;
  }
  return parseCondition(*document->root(), fault);
}

std::string_view wordOf(Condition::Kind kind) {
  for (const KindRow& row : kKinds) {
    if (row.kind == kind) return row.key;
  }
  return {};
}

}  // namespace gateway::policy
