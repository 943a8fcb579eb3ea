// `kavi actions`, `kavi tokens` and `kavi setting` on the command line.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "gateway/cli/admin_commands.h"
#include "gateway/cli/subcommands.h"

namespace gateway::cli {
namespace {

constexpr char kSettingExamples[] = R"(Examples:
  kavi setting encode postpone 08:30               what is stored for it
  kavi setting decode 12 '{hour=8,min=30}'         and back; 12 is the action's type code)";

struct SettingArguments {
  std::string action;
  std::string text;
  bool json = false;
};

void addList(CLI::App& app, Chosen& chosen, const char* name, const char* help,
             int (*command)(bool json)) {
  auto json = std::make_shared<bool>(false);
  CLI::App* list = app.add_subcommand(name, help);
  list->add_flag("--json", *json, kJsonHelp);
  list->callback([json, command, &chosen] { chosen = [json, command] { return command(*json); }; });
}

}  // namespace

void addLookupCommands(CLI::App& app, Chosen& chosen) {
  addList(app, chosen, "actions", "List the actions that a rule can name", actionsCommand);
  addList(app, chosen, "tokens", "List the tokens that texts may hold", tokensCommand);

  CLI::App* setting = app.add_subcommand("setting", "Translate actions' settings strings");
  setting->require_subcommand(1);
  const auto add = [&](const char* name, const char* help, SettingArguments& arguments) {
    CLI::App* command = setting->add_subcommand(name, help);
    command->footer(kSettingExamples);
    command->add_option("action", arguments.action, "Name or type code")->required();
    command->add_flag("--json", arguments.json, kJsonHelp);
    return command;
  };
  auto encoded = std::make_shared<SettingArguments>();
  CLI::App* encode = add("encode", "From the value in a policy", *encoded);
  encode->add_option("value", encoded->text, "As in a policy; none for actions without one");
  encode->callback([encode, encoded, &chosen] {
    chosen = [encode, encoded] {
      const bool given = encode->count("value") != 0;
      return settingEncodeCommand(encoded->action, given ? &encoded->text : nullptr, encoded->json);
    };
  });
  auto decoded = std::make_shared<SettingArguments>();
  CLI::App* decode = add("decode", "To the value in a policy", *decoded);
  decode->add_option("setting", decoded->text, "The settings string");
  decode->callback([decoded, &chosen] {
    chosen = [decoded] {
      return settingDecodeCommand(decoded->action, decoded->text, decoded->json);
    };
  });
}

}  // namespace gateway::cli
