// `kavi rule` on the command line.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "gateway/cli/rule_commands.h"
#include "gateway/cli/subcommands.h"

namespace gateway::cli {
namespace {

constexpr char kExamples[] = R"(Examples:
  kavi rule list --config kavi.ini                 the rules, in the order in which they run
  kavi rule show 15                                one as in a policy, with its settings strings
  kavi rule bindings 15                            the named objects that its actions use
  kavi rule bind 15 stamp legal                    let its stamp action use the stamp 'legal'
  kavi rule bind 15 2 tell-admin tell-user         or its second action, these notifications

Rules are written with kavi policy apply. The store is named by --store or by the settings file of
--config.)";

struct RuleArguments {
  RuleOptions options;
  RulePage page;
  std::vector<std::string> objects;
};
using Arguments = std::shared_ptr<RuleArguments>;

CLI::App* addTo(CLI::App& rule, const char* name, const char* help, const Arguments& arguments) {
  CLI::App* command = rule.add_subcommand(name, help);
  RuleOptions& options = arguments->options;
  command->add_option("--store", options.store.location, kStoreHelp)->type_name("LOCATION");
  command->add_option("--config,-c", options.store.config, kConfigHelp)->type_name("FILE");
  command->add_flag("--json", options.json, kJsonHelp);
  return command;
}

CLI::App* addWithRule(CLI::App& rule, const char* name, const char* help,
                      const Arguments& arguments) {
  CLI::App* command = addTo(rule, name, help, arguments);
  command->add_option("rule", arguments->options.rule, "The rule's id")
      ->required()
      ->type_name("ID");
  return command;
}

void addList(CLI::App& rule, Chosen& chosen, const Arguments& arguments) {
  CLI::App* list = addTo(rule, "list", "The rules, in the order in which they run", arguments);
  list->add_option("--after", arguments->page.after, "Only those behind this rule")
      ->type_name("ID");
  list->add_option("--limit", arguments->page.limit, "At most so many")
      ->check(CLI::Range(1, 1'000'000))
      ->type_name("N");
  list->callback([arguments, &chosen] {
    chosen = [arguments] { return ruleListCommand(arguments->options, arguments->page); };
  });
}

}  // namespace

void addRuleCommands(CLI::App& app, Chosen& chosen) {
  CLI::App* rule = app.add_subcommand("rule", "The rules in a store, and the objects they use");
  rule->require_subcommand(1);
  rule->footer(kExamples);
  const auto arguments = std::make_shared<RuleArguments>();
  addList(*rule, chosen, arguments);

  CLI::App* show = addWithRule(*rule, "show", "One as in a policy", arguments);
  show->callback([arguments, &chosen] {
    chosen = [arguments] { return ruleShowCommand(arguments->options); };
  });
  constexpr char kActionHelp[] = "The name of an action, or its place in the rule from 1";
  CLI::App* bindings =
      addWithRule(*rule, "bindings", "The named objects that its actions use", arguments);
  bindings->add_option("action", arguments->options.action, kActionHelp)->type_name("ACTION");
  bindings->callback([arguments, &chosen] {
    chosen = [arguments] { return ruleBindingsCommand(arguments->options); };
  });
  CLI::App* bind = addWithRule(*rule, "bind", "Let an action use these objects only", arguments);
  bind->add_option("action", arguments->options.action, kActionHelp)
      ->required()
      ->type_name("ACTION");
  bind->add_option("object", arguments->objects, "Names, or ids")->required()->type_name("OBJECT");
  bind->callback([arguments, &chosen] {
    chosen = [arguments] { return ruleBindCommand(arguments->options, arguments->objects); };
  });
}

}  // namespace gateway::cli
