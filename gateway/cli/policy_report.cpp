#include "gateway/cli/policy_report.h"

#include <nlohmann/json.hpp>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "gateway/cli/json_output.h"
#include "gateway/cli/line_diff.h"
#include "gateway/cli/table.h"
#include "gateway/policy/yaml_writer.h"

namespace gateway::cli {
namespace {

using nlohmann::ordered_json;
using policy::Node;
using policy::PolicyChange;
using policy::PolicyDiff;
using Kind = PolicyChange::Kind;

std::string wordFor(const PolicyChange& change) {
  if (change.kind == Kind::Added) return "added";
  if (change.kind == Kind::Removed) return "removed";
  return change.before == change.after ? "moved" : "changed";
}

std::vector<std::string> linesOf(const Node* entry) {
  std::vector<std::string> lines;
  if (entry == nullptr) return lines;
  std::istringstream text(policy::writeYaml(*entry));
  for (std::string line; std::getline(text, line);) lines.push_back(std::move(line));
  return lines;
}

std::string styled(const Style& style, const DiffLine& line) {
  const std::string text = std::string("    ") + line.mark + " " + line.text;
  if (line.mark == '+') return style.good(text);
  return line.mark == '-' ? style.bad(text) : style.dim(text);
}

/// The keys whose values are numbers in a policy.
bool isNumberKey(std::string_view key) {
  return key == "id" || key == "aging_days" || key == "over" || key == "under";
}

ordered_json jsonOfScalar(std::string_view key, const std::string& text) {
  if (key == "enabled") return text == "true" || text == "yes";
  if (!isNumberKey(key)) return text;
  const ordered_json number = ordered_json::parse(text, nullptr, false);
  return number.is_number() ? number : ordered_json(text);
}

}  // namespace

std::string textReport(const PolicyDiff& diff, const Style& style) {
  std::string out;
  for (const PolicyChange& change : diff.changes()) {
    const std::string id = std::to_string(change.id);
    const bool isRule = change.word == "rule";
    out += style.bold(padded(wordFor(change), 9) + std::string(change.word) + " " +
                      (isRule ? id + " " : "") + nameText(change.name) +
                      (isRule ? "" : " (" + id + ")"));
    const bool both = wordFor(change) == "changed";
    out += change.moved && both ? ", moved\n" : "\n";
    for (const DiffLine& line : diffLines(linesOf(change.before), linesOf(change.after))) {
      out += styled(style, line) + "\n";
    }
  }
  return out + std::to_string(diff.count(Kind::Added)) + " added, " +
         std::to_string(diff.count(Kind::Removed)) + " removed, " +
         std::to_string(diff.count(Kind::Changed)) + " changed\n";
}

ordered_json jsonOf(const Node& node) {
  switch (node.kind) {
    case Node::Kind::Null:
      return nullptr;
    case Node::Kind::Scalar:
    case Node::Kind::Binary:
      return node.text;
    case Node::Kind::List: {
      ordered_json list = ordered_json::array();
      for (const Node* item : node.items) list.push_back(jsonOf(*item));
      return list;
    }
    case Node::Kind::Map:
      break;
  }
  ordered_json map = ordered_json::object();
  for (const Node::Member& member : node.members) {
    if (member.value->kind == Node::Kind::Binary) {
      addBytes(member.key.c_str(), member.value->text, map);
    } else if (member.value->kind == Node::Kind::Scalar) {
      map[member.key] = jsonOfScalar(member.key, member.value->text);
    } else {
      map[member.key] = jsonOf(*member.value);
    }
  }
  return map;
}

ordered_json jsonReport(const PolicyDiff& diff) {
  ordered_json list = ordered_json::array();
  for (const PolicyChange& change : diff.changes()) {
    ordered_json item = {
        {"change", wordFor(change)}, {"kind", std::string(change.word)}, {"id", change.id}};
    addBytes("name", change.name, item);
    if (change.word == "rule") item["moved"] = change.moved;
    item["before"] = change.before != nullptr ? jsonOf(*change.before) : ordered_json();
    item["after"] = change.after != nullptr ? jsonOf(*change.after) : ordered_json();
    list.push_back(std::move(item));
  }
  return list;
}

}  // namespace gateway::cli
