// `kavi policy` on the command line.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "gateway/cli/policy_commands.h"
#include "gateway/cli/subcommands.h"

namespace gateway::cli {
namespace {

constexpr char kExamples[] = R"(Examples:
  kavi policy check policy.yaml                    errors and doubts, before it is used
  kavi policy diff policy.yaml --config kavi.ini   what it would change in the store
  kavi policy apply policy.yaml --store sqlite:/var/lib/kavi/policy.sqlite
                                                   change it: all of it, or nothing
  kavi policy export policy.yaml --config kavi.ini the store's policy as a file)";

void addStore(CLI::App& command, StoreOptions& options) {
  command.add_option("--store", options.location, kStoreHelp)->type_name("LOCATION");
  command.add_option("--config,-c", options.config, kConfigHelp)->type_name("FILE");
}

void addCheck(CLI::App& policy, Chosen& chosen) {
  auto options = std::make_shared<PolicyCheckOptions>();
  CLI::App* check = policy.add_subcommand("check", "Find errors and doubtful places in a policy");
  CLI::Option* file =
      check->add_option("file", options->policy.file, "The policy file")->type_name("FILE");
  check->add_option("--store", options->policy.store, kPolicyStoreHelp)
      ->type_name("LOCATION")
      ->excludes(file);
  check->add_option("--config,-c", options->config, kConfigHelp)->type_name("FILE");
  check->add_flag("--json", options->json, kJsonHelp);
  check->callback(
      [options, &chosen] { chosen = [options] { return policyCheckCommand(*options); }; });
}

void addExport(CLI::App& policy, Chosen& chosen) {
  struct Arguments {
    StoreOptions store;
    std::string file;
  };
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = policy.add_subcommand("export", "Write the policy of a store as a file");
  command->add_option("file", arguments->file, "The file, which is replaced; else standard output")
      ->type_name("FILE");
  addStore(*command, arguments->store);
  command->callback([arguments, &chosen] {
    chosen = [arguments] { return policyExportCommand(arguments->store, arguments->file); };
  });
}

CLI::App* addApplied(CLI::App& policy, const char* name, const char* help,
                     const std::shared_ptr<PolicyApplyOptions>& options, Chosen& chosen) {
  CLI::App* command = policy.add_subcommand(name, help);
  command->add_option("file", options->file, "The policy file")->required()->type_name("FILE");
  addStore(*command, options->store);
  command->add_flag("--json", options->json, kJsonHelp);
  addColour(*command, options->colour);
  command->callback(
      [options, &chosen] { chosen = [options] { return policyApplyCommand(*options); }; });
  return command;
}

}  // namespace

void addPolicySource(CLI::App& command, PolicyOptions& options, const char* help) {
  CLI::Option* file = command.add_option("--policy,-p", options.file, help)->type_name("FILE");
  command.add_option("--store", options.store, kPolicyStoreHelp)
      ->type_name("LOCATION")
      ->excludes(file);
}

void addPolicyCommands(CLI::App& app, Chosen& chosen) {
  CLI::App* policy = app.add_subcommand("policy", "Check policies, and keep them in a store");
  policy->require_subcommand(1);
  policy->footer(kExamples);
  addCheck(*policy, chosen);
  auto diff = std::make_shared<PolicyApplyOptions>();
  diff->dryRun = true;
  addApplied(*policy, "diff", "Show what a policy file would change in a store", diff, chosen);
  auto apply = std::make_shared<PolicyApplyOptions>();
  addApplied(*policy, "apply", "Make a policy file the policy of a store, all of it or nothing",
             apply, chosen)
      ->add_flag("--dry-run,-n", apply->dryRun, "Only show what would change");
  addExport(*policy, chosen);
}

}  // namespace gateway::cli
