#include "gateway/cli/admin_commands.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "gateway/cli/json_output.h"
#include "gateway/cli/startup.h"
#include "gateway/cli/terminal.h"
#include "gateway/policy/action_registry.h"
#include "gateway/policy/suggest.h"
#include "gateway/policy/yaml_reader.h"
#include "host/core/text_escape.h"
#include "library/tokens/action_utils.h"
#include "library/tokens/token_table.h"

namespace gateway::cli {
namespace {

using nlohmann::ordered_json;
using policy::ActionSpec;
using policy::Diagnostic;

/// By name or by type code. Complains when there is none.
const ActionSpec* requireAction(const std::string& name) {
  const ActionSpec* spec = policy::findAction(name);
  int code = 0;
  const auto [rest, fault] = std::from_chars(name.data(), name.data() + name.size(), code);
  if (spec == nullptr && fault == std::errc() && rest == name.data() + name.size()) {
    spec = policy::findAction(code);
  }
  if (spec == nullptr) {
    complain("unknown action " + policy::inQuotes(name) + " " +
             policy::remedyFor(name, policy::actionNames()));
  }
  return spec;
}

void printSetting(const ActionSpec& spec, const std::string& value, const std::string& setting,
                  const std::string& asked, bool json) {
  if (json) {
    printJson({{"action", spec.name},
               {"code", static_cast<int>(spec.type)},
               {"value", value},
               {"setting", setting}});
  } else {
    printLine(asked);
  }
}

/// The value of an action as in a policy: a text, or in braces a map. Complains, and returns null,
/// when what stands in braces is none.
std::unique_ptr<policy::Document> valueOfArgument(const std::string& called,
                                                  const std::string* value) {
  if (value != nullptr && value->starts_with('{')) {
    policy::Diagnostics diagnostics("value");
    std::unique_ptr<policy::Document> document = policy::readYaml(*value, diagnostics);
    for (const Diagnostic& fault : diagnostics.all()) complain(called + fault.message);
    return diagnostics.hasErrors() ? nullptr : std::move(document);
  }
  auto document = std::make_unique<policy::Document>();
  policy::Node& node =
      document->add(value != nullptr ? policy::Node::Kind::Scalar : policy::Node::Kind::Null, 0);
  if (value != nullptr) node.text = *value;
  document->setRoot(&node);
  return document;
}

}  // namespace

int actionsCommand(bool json) {
  ordered_json list = ordered_json::array();
  if (!json) {
    printLine(padded("ACTION", 20) + padded("CODE", 6) + padded("VALUE", 14) +
              padded("NAMED OBJECTS", 15) + "WHAT IT DOES");
  }
  for (const ActionSpec& spec : policy::allActions()) {
    const bool objects = spec.make()->hasNamedObjects();
    if (json) {
      list.push_back({{"action", spec.name},
                      {"code", static_cast<int>(spec.type)},
                      {"value", spec.value},
                      {"named_objects", objects},
                      {"disposes", spec.disposes},
                      {"example", spec.example},
                      {"summary", spec.summary}});
    } else {
      printLine(padded(spec.name, 20) + padded(std::to_string(spec.type), 6) +
                padded(spec.takesValue() ? spec.value : "none", 14) +
                padded(objects ? "yes" : "no", 15) + std::string(spec.summary));
    }
  }
  if (json) printJson(list);
  return ExitDone;
}

int tokensCommand(bool json) {
  ordered_json list = ordered_json::array();
  for (const library::TokenRow* row = ActionUtils::getTokenNames(); row->text[0] != '\0'; ++row) {
    const bool computed = row->function != nullptr;
    if (json) {
      list.push_back(
          {{"token", row->text}, {"code", static_cast<int>(row->token)}, {"computed", computed}});
    } else {
      printLine(padded(row->text, 20) + std::to_string(static_cast<int>(row->token)));
    }
  }
  if (json) printJson(list);
  return ExitDone;
}

int settingEncodeCommand(const std::string& action, const std::string* value, bool json) {
  const std::unique_ptr<Startup> startup = Startup::begin({});
  const ActionSpec* spec = startup != nullptr ? requireAction(action) : nullptr;
  if (spec == nullptr) return ExitUsage;
  const std::string called = "action '" + std::string(spec->name) + "' ";
  if (spec->takesValue() && value == nullptr) {
    complain(called + "needs a value (" + std::string(spec->value) + ")");
    return ExitUsage;
  }
  const std::unique_ptr<policy::Document> document = valueOfArgument(called, value);
  if (document == nullptr) return ExitUsage;
  std::string setting;
  const bool encoded =
      spec->encode(*document->root(), setting,
                   [&](int, const std::string& message) { complain(called + message); });
  if (!encoded) return ExitUsage;
  printSetting(*spec, value != nullptr ? *value : std::string(), setting, setting, json);
  return ExitDone;
}

int settingDecodeCommand(const std::string& action, const std::string& setting, bool json) {
  const std::unique_ptr<Startup> startup = Startup::begin({});
  const ActionSpec* spec = startup != nullptr ? requireAction(action) : nullptr;
  if (spec == nullptr) return ExitUsage;
  std::string value;
  if (!spec->decode(setting, value)) {
    complain("action '" + std::string(spec->name) + "' refuses the setting " +
             policy::inQuotes(setting));
    return ExitUsage;
  }
  printSetting(*spec, value, setting, host::core::printable(value), json);
  return ExitDone;
}

}  // namespace gateway::cli
