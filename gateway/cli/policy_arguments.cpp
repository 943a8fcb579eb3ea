// `kavi policy` on the command line.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "gateway/cli/admin_commands.h"
#include "gateway/cli/subcommands.h"

namespace gateway::cli {
namespace {

constexpr char kCheckExamples[] = R"(Examples:
  kavi policy check policy.yaml                    errors and doubts, before it is used)";

struct CheckArguments {
  std::string file;
  bool json = false;
};

void addCheck(CLI::App& policy, Chosen& chosen) {
  auto arguments = std::make_shared<CheckArguments>();
  CLI::App* check = policy.add_subcommand("check", "Find errors and doubtful places in a policy");
  check->footer(kCheckExamples);
  check->add_option("file", arguments->file, "The policy file")->required()->type_name("FILE");
  check->add_flag("--json", arguments->json, kJsonHelp);
  check->callback([arguments, &chosen] {
    chosen = [arguments] { return policyCheckCommand(arguments->file, arguments->json); };
  });
}

}  // namespace

void addPolicySource(CLI::App& command, PolicyOptions& options, const char* help) {
  CLI::Option* file = command.add_option("--policy,-p", options.file, help)->type_name("FILE");
  command.add_option("--store", options.store, kPolicyStoreHelp)
      ->type_name("LOCATION")
      ->excludes(file);
}

void addPolicyCommands(CLI::App& app, Chosen& chosen) {
  CLI::App* policy = app.add_subcommand("policy", "Look at policies");
  policy->require_subcommand(1);
  addCheck(*policy, chosen);
}

}  // namespace gateway::cli
