// `kavi expand` and `kavi notify` on the command line.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "gateway/cli/expand_command.h"
#include "gateway/cli/notify_command.h"
#include "gateway/cli/spool_commands.h"
#include "gateway/cli/standard_streams.h"
#include "gateway/cli/subcommands.h"

namespace gateway::cli {
namespace {

constexpr char kExpandExamples[] = R"(Examples:
  kavi expand '%SUBJECT% from %SENDER%' mail.eml   a template with its tokens replaced
  kavi expand --policy policy.yaml '%RULENAME%' mail.eml
                                                   with the values of the rule that matches)";
constexpr char kNotifyExamples[] = R"(Examples:
  kavi notify NAME mail.eml --policy policy.yaml   a notification's mail, as it would go out
  kavi notify NAME mail.eml --policy policy.yaml --config kavi.ini --send-test me@example.org
                                                   send it, to this address only)";

/// The options of a command that are about one message and its envelope.
template <class Options>
struct MessageArguments {
  Options options;
  std::string from;
};

template <class Options>
void addMessage(CLI::App& command, MessageArguments<Options>& arguments) {
  Options& options = arguments.options;
  command.add_option("file", options.file, "The message, or - for standard input")
      ->required()
      ->type_name("FILE");
  command.add_option("--config,-c", options.config, kConfigHelp)->type_name("FILE");
  command.add_option("--from", arguments.from, "Envelope sender; as for run")->type_name("ADDRESS");
  command.add_option("--rcpt", options.recipients, "Envelope recipient, may be repeated")
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
}

void addExpand(CLI::App& app, Chosen& chosen) {
  auto arguments = std::make_shared<MessageArguments<ExpandOptions>>();
  ExpandOptions& options = arguments->options;
  CLI::App* expand =
      app.add_subcommand("expand", "Print a template with its tokens replaced for a message");
  expand->footer(kExpandExamples);
  expand->add_option("text", options.text, "The template")->required()->type_name("TEXT");
  addMessage(*expand, *arguments);
  addPolicySource(*expand, options.policy,
                  "Take the values of rules from the first of its rules that matches");
  CLI::Option* trusted = expand->add_flag("--trusted", options.trusted, "As for run");
  expand->add_flag("--reinjected", options.reinjected, "As for run")->excludes(trusted);
  expand->add_option("--state", options.state, kStateHelp)->type_name("FOLDER");
  expand->callback([expand, arguments, &chosen] {
    chosen = [expand, arguments] {
      if (expand->count("--from") != 0) arguments->options.from = arguments->from;
      return expandCommand(arguments->options);
    };
  });
}

void addNotify(CLI::App& app, Chosen& chosen) {
  auto arguments = std::make_shared<MessageArguments<NotifyOptions>>();
  NotifyOptions& options = arguments->options;
  CLI::App* notify = app.add_subcommand("notify", "Show a notification's mail for a message");
  notify->footer(kNotifyExamples);
  notify->add_option("name", options.name, "The notification")->required()->type_name("NAME");
  addMessage(*notify, *arguments);
  addPolicySource(*notify, options.policy, "The policy that declares it");
  CLI::Option* preview =
      notify->add_flag("--preview")->description("Print the mail, send nothing (the default)");
  notify
      ->add_option("--send-test", options.sendTest,
                   "Send the mail to this address only, through plain_host of the settings")
      ->type_name("ADDRESS")
      ->excludes(preview);
  notify->callback([notify, arguments, &chosen] {
    chosen = [notify, arguments] {
      if (notify->count("--from") != 0) arguments->options.from = arguments->from;
      ignoreBrokenPipes();
      return notifyCommand(arguments->options);
    };
  });
}

}  // namespace

void addMessageCommands(CLI::App& app, Chosen& chosen) {
  addExpand(app, chosen);
  addNotify(app, chosen);
}

}  // namespace gateway::cli
