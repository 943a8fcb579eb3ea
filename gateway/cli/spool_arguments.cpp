// `kavi spool` on the command line.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "gateway/cli/spool_commands.h"
#include "gateway/cli/standard_streams.h"
#include "gateway/cli/subcommands.h"

namespace gateway::cli {
namespace {

constexpr char kExamples[] = R"(Examples:
  kavi spool list --config kavi.ini                what waits to be sent, and what could not be
  kavi spool show --config kavi.ini ID             who gets it, and what was tried
  kavi spool send --config kavi.ini                try again what is due

Exit status of send: 3 when not all of what was due could be sent.)";

struct SpoolArguments {
  SpoolOptions options;
  std::vector<std::string> ids;
  bool flag = false;  ///< --message, --all, --yes or --verbose
};
using Arguments = std::shared_ptr<SpoolArguments>;

CLI::App* addTo(CLI::App& spool, const char* name, const char* help, const Arguments& arguments) {
  CLI::App* command = spool.add_subcommand(name, help);
  command->add_option("--config,-c", arguments->options.config, kConfigHelp)->type_name("FILE");
  command->add_option("--state", arguments->options.state, kStateHelp)->type_name("FOLDER");
  return command;
}

CLI::Option* addIds(CLI::App& command, const Arguments& arguments) {
  return command.add_option("id", arguments->ids, "As kavi spool list shows it")->type_name("ID");
}

/// Lets `command` do `work` when it is the one that is meant.
template <class Work>
void choose(CLI::App& command, Chosen& chosen, const Arguments& arguments, Work work) {
  command.callback(
      [arguments, work, &chosen] { chosen = [arguments, work] { return work(*arguments); }; });
}

void addReading(CLI::App& spool, Chosen& chosen, const Arguments& arguments) {
  CLI::App* list = addTo(spool, "list", "Every message, the oldest first", arguments);
  list->add_flag("--json", arguments->options.json, kJsonHelp);
  choose(*list, chosen, arguments,
         [](const SpoolArguments& given) { return spoolListCommand(given.options); });

  CLI::App* show = addTo(spool, "show", "Envelope and log of a message", arguments);
  addIds(*show, arguments)->required()->expected(1);
  show->add_flag("--json", arguments->options.json, kJsonHelp);
  show->add_flag("--message", arguments->flag, "The message itself instead, as it lies there");
  choose(*show, chosen, arguments, [](const SpoolArguments& given) {
    return spoolShowCommand(given.options, given.ids.front(), given.flag);
  });
}

void addChanging(CLI::App& spool, Chosen& chosen, const Arguments& arguments) {
  CLI::App* retry = addTo(spool, "retry", "Make messages due at once", arguments);
  addIds(*retry, arguments);
  retry->add_flag("--all", arguments->flag, "All of them");
  choose(*retry, chosen, arguments, [](const SpoolArguments& given) {
    return spoolRetryCommand(given.options, given.ids, given.flag);
  });

  CLI::App* remove = addTo(spool, "delete", "Remove messages for good", arguments);
  addIds(*remove, arguments)->required();
  remove->add_flag("--yes,-y", arguments->flag, "Do not ask");
  choose(*remove, chosen, arguments, [](const SpoolArguments& given) {
    return spoolDeleteCommand(given.options, given.ids, given.flag);
  });

  CLI::App* send = addTo(spool, "send", "Send what is due, once", arguments);
  send->add_flag("--json", arguments->options.json, kJsonHelp);
  send->add_flag("--verbose,-v", arguments->flag, "Show what was sent, too");
  choose(*send, chosen, arguments, [](const SpoolArguments& given) {
    ignoreBrokenPipes();
    return spoolSendCommand(given.options, given.flag);
  });
}

}  // namespace

void addSpoolCommands(CLI::App& app, Chosen& chosen) {
  CLI::App* spool = app.add_subcommand("spool", "What waits to be sent, and what could not be");
  spool->require_subcommand(1);
  spool->footer(kExamples);
  const Arguments arguments = std::make_shared<SpoolArguments>();
  addReading(*spool, chosen, arguments);
  addChanging(*spool, chosen, arguments);
}

}  // namespace gateway::cli
