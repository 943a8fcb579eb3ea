// The command `kavi`.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <map>
#include <optional>
#include <string>

#include "gateway/cli/admin_commands.h"
#include "gateway/cli/expand_command.h"
#include "gateway/cli/notify_command.h"
#include "gateway/cli/run_command.h"
#include "gateway/cli/spool_commands.h"
#include "gateway/cli/standard_streams.h"
#include "gateway/cli/startup.h"

namespace {

using namespace gateway::cli;  // NOLINT(google-build-using-namespace): the program itself

constexpr char kExamples[] = R"(Examples:
  kavi run --policy policy.yaml mail.eml           what the policy does to one message
  kavi run --policy policy.yaml --out result inbox the same for a folder, results into result/
  kavi run --policy policy.yaml --diff mail.eml    and how the message changes, decoded
  kavi run --policy policy.yaml --json - < mail    for programs: one JSON object per message
  kavi policy check policy.yaml                    errors and doubts, before it is used
  kavi expand '%SUBJECT% from %SENDER%' mail.eml   a template with its tokens replaced
  kavi notify NAME mail.eml --policy policy.yaml   a notification's mail, as it would go out
  kavi actions                                     what a rule can do
  kavi run --deliver --config kavi.ini --policy policy.yaml --out result mail.eml
                                                   do it: file, hand off and send
  kavi spool list --config kavi.ini                what waits to be sent

Exit status: 0 all done, 1 an action failed or a message could not be read or written,
2 usage or policy error, 3 not everything in the spool that was due could be sent.)";

constexpr char kStateHelp[] =
    "The folder of the spool; else state_folder in section delivery of the settings, or "
    "/var/lib/kavi";

/// What the subcommands put their arguments into.
struct Arguments {
  RunOptions run;
  ExpandOptions expand;
  NotifyOptions notify;
  std::string from;
  std::string policyFile;
  std::string action;
  std::string value;
  std::string setting;
  bool json = false;
  SpoolOptions spool;
  std::vector<std::string> spoolIds;
  bool flag = false;  ///< --message, --all, --yes or --verbose of a spool command
};

void addRun(CLI::App& app, Arguments& arguments) {
  RunOptions& options = arguments.run;
  CLI::App* run =
      app.add_subcommand("run",
                         "Run a policy on messages and say what it does; nothing is sent without "
                         "--deliver");
  run->add_option("--policy,-p", options.policy, "The policy file")->required()->type_name("FILE");
  run->add_option("--out,-o", options.out,
                  "Write the resulting messages into this folder, under the inputs' names; what "
                  "would be sent or filed goes into named folders beside them")
      ->type_name("FOLDER");
  run->add_option("--config,-c", options.config, "Global settings, an INI file")->type_name("FILE");
  run->add_option("--from", arguments.from,
                  "Envelope sender; else that of Return-Path or From. <> is the null sender")
      ->type_name("ADDRESS");
  run->add_option("--rcpt", options.recipients,
                  "Envelope recipient, may be repeated; else those of Delivered-To, or To and Cc")
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
  run->add_option("--jobs,-j", options.jobs, "Messages to run at once; default: one per processor")
      ->check(CLI::Range(1U, 1024U))
      ->type_name("N");
  CLI::Option* trusted =
      run->add_flag("--trusted", options.trusted,
                    "Reprocessing fields of the inputs count as if they were sealed: rules that "
                    "they name are skipped");
  run->add_flag("--reinjected", options.reinjected,
                "The inputs come from the listener that mail is sent back to: their reprocessing "
                "fields count with a seal that holds")
      ->excludes(trusted);
  run->add_flag("--deliver", options.deliver,
                "Act for real: file, hand off and send as the settings say; what goes on is "
                "written to --out");
  run->add_option("--state", options.state, kStateHelp)->type_name("FOLDER");
  run->add_flag("--diff,-d", options.diff,
                "Show how messages changed: header, texts and list of attachments, decoded");
  run->add_flag("--json", options.json, "One JSON object per message and line");
  run->add_flag("--verbose,-v", options.verbose,
                "Show log lines, and what is wrong with a message's form");
  run->add_flag("--quiet,-q", options.quiet, "Leave out messages that no rule matched");
  run->add_option("--color", options.colour, "When to colour: auto, always, never")
      ->transform(CLI::CheckedTransformer(std::map<std::string, Colour>{
          {"auto", Colour::Auto}, {"always", Colour::Always}, {"never", Colour::Never}}))
      ->type_name("WHEN");
  run->add_option("inputs", options.inputs, "Files, folders, mbox files, or - for standard input")
      ->required()
      ->type_name("FILE|FOLDER|MBOX|-");
}

void addExpand(CLI::App& app, Arguments& arguments) {
  ExpandOptions& options = arguments.expand;
  CLI::App* expand =
      app.add_subcommand("expand", "Print a template with its tokens replaced for a message");
  expand->add_option("text", options.text, "The template")->required()->type_name("TEXT");
  expand->add_option("file", options.file, "The message, or - for standard input")
      ->required()
      ->type_name("FILE");
  expand
      ->add_option("--policy,-p", options.policy,
                   "Take the values of rules from the first of its rules that matches")
      ->type_name("FILE");
  expand->add_option("--config,-c", options.config, "Global settings, an INI file")
      ->type_name("FILE");
  expand->add_option("--from", arguments.from, "Envelope sender; as for run")->type_name("ADDRESS");
  expand->add_option("--rcpt", options.recipients, "Envelope recipient, may be repeated")
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
  expand->add_flag("--trusted", options.trusted, "As for run");
}

void addNotify(CLI::App& app, Arguments& arguments) {
  NotifyOptions& options = arguments.notify;
  CLI::App* notify = app.add_subcommand("notify", "Show a notification's mail for a message");
  notify->add_option("name", options.name, "The notification")->required()->type_name("NAME");
  notify->add_option("file", options.file, "The message, or - for standard input")
      ->required()
      ->type_name("FILE");
  notify->add_option("--policy,-p", options.policy, "The policy that declares it")
      ->required()
      ->type_name("FILE");
  notify->add_option("--config,-c", options.config, "Global settings, an INI file")
      ->type_name("FILE");
  CLI::Option* preview =
      notify->add_flag("--preview", arguments.flag, "Print the mail, send nothing (the default)");
  notify
      ->add_option("--send-test", options.sendTest,
                   "Send the mail to this address only, through plain_host of the settings")
      ->type_name("ADDRESS")
      ->excludes(preview);
  notify->add_option("--from", arguments.from, "Envelope sender; as for run")->type_name("ADDRESS");
  notify->add_option("--rcpt", options.recipients, "Envelope recipient, may be repeated")
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
}

void addAdmin(CLI::App& app, Arguments& arguments) {
  CLI::App* policy = app.add_subcommand("policy", "Look at policies");
  policy->require_subcommand(1);
  CLI::App* check = policy->add_subcommand("check", "Find errors and doubtful places in a policy");
  check->add_option("file", arguments.policyFile, "The policy file")->required()->type_name("FILE");
  check->add_flag("--json", arguments.json, "As JSON");

  CLI::App* actions = app.add_subcommand("actions", "List the actions that a rule can name");
  actions->add_flag("--json", arguments.json, "As JSON");
  CLI::App* tokens = app.add_subcommand("tokens", "List the tokens that texts may hold");
  tokens->add_flag("--json", arguments.json, "As JSON");

  CLI::App* setting = app.add_subcommand("setting", "Translate actions' settings strings");
  setting->require_subcommand(1);
  CLI::App* encode = setting->add_subcommand("encode", "From the value in a policy");
  encode->add_option("action", arguments.action, "Name or type code")->required();
  encode->add_option("value", arguments.value, "As in a policy; none for actions without one");
  encode->add_flag("--json", arguments.json, "As JSON");
  CLI::App* decode = setting->add_subcommand("decode", "To the value in a policy");
  decode->add_option("action", arguments.action, "Name or type code")->required();
  decode->add_option("setting", arguments.setting, "The settings string");
  decode->add_flag("--json", arguments.json, "As JSON");
}

void addSpool(CLI::App& app, Arguments& arguments) {
  CLI::App* spool = app.add_subcommand("spool", "What waits to be sent, and what could not be");
  spool->require_subcommand(1);
  const auto add = [&](const char* name, const char* help) {
    CLI::App* command = spool->add_subcommand(name, help);
    command->add_option("--config,-c", arguments.spool.config, "Global settings, an INI file")
        ->type_name("FILE");
    command->add_option("--state", arguments.spool.state, kStateHelp)->type_name("FOLDER");
    return command;
  };
  const auto addIds = [&](CLI::App* command) {
    return command->add_option("id", arguments.spoolIds, "As kavi spool list shows it")
        ->type_name("ID");
  };
  add("list", "Every message, the oldest first")
      ->add_flag("--json", arguments.spool.json, "As JSON");
  CLI::App* show = add("show", "Envelope and log of a message");
  addIds(show)->required()->expected(1);
  show->add_flag("--json", arguments.spool.json, "As JSON");
  show->add_flag("--message", arguments.flag, "The message itself instead, as it lies there");
  CLI::App* retry = add("retry", "Make messages due at once");
  addIds(retry);
  retry->add_flag("--all", arguments.flag, "All of them");
  CLI::App* remove = add("delete", "Remove messages for good");
  addIds(remove)->required();
  remove->add_flag("--yes,-y", arguments.flag, "Do not ask");
  CLI::App* send = add("send", "Send what is due, once");
  send->add_flag("--json", arguments.spool.json, "As JSON");
  send->add_flag("--verbose,-v", arguments.flag, "Show what was sent, too");
}

int dispatchSpool(const CLI::App& spool, const Arguments& arguments) {
  if (spool.get_subcommand("list")->parsed()) return spoolListCommand(arguments.spool);
  if (spool.get_subcommand("show")->parsed()) {
    return spoolShowCommand(arguments.spool, arguments.spoolIds.front(), arguments.flag);
  }
  if (spool.get_subcommand("retry")->parsed()) {
    return spoolRetryCommand(arguments.spool, arguments.spoolIds, arguments.flag);
  }
  if (spool.get_subcommand("delete")->parsed()) {
    return spoolDeleteCommand(arguments.spool, arguments.spoolIds, arguments.flag);
  }
  ignoreBrokenPipes();
  return spoolSendCommand(arguments.spool, arguments.flag);
}

int dispatch(CLI::App& app, Arguments& arguments) {
  if (CLI::App* run = app.get_subcommand("run"); run->parsed()) {
    if (run->count("--from") != 0) arguments.run.from = arguments.from;
    if (arguments.run.deliver) ignoreBrokenPipes();
    return runCommand(arguments.run);
  }
  if (CLI::App* expand = app.get_subcommand("expand"); expand->parsed()) {
    if (expand->count("--from") != 0) arguments.expand.from = arguments.from;
    return expandCommand(arguments.expand);
  }
  if (CLI::App* notify = app.get_subcommand("notify"); notify->parsed()) {
    if (notify->count("--from") != 0) arguments.notify.from = arguments.from;
    ignoreBrokenPipes();
    return notifyCommand(arguments.notify);
  }
  if (CLI::App* spool = app.get_subcommand("spool"); spool->parsed()) {
    return dispatchSpool(*spool, arguments);
  }
  if (app.get_subcommand("policy")->parsed()) {
    return policyCheckCommand(arguments.policyFile, arguments.json);
  }
  if (app.get_subcommand("actions")->parsed()) return actionsCommand(arguments.json);
  if (app.get_subcommand("tokens")->parsed()) return tokensCommand(arguments.json);
  CLI::App* setting = app.get_subcommand("setting");
  if (CLI::App* encode = setting->get_subcommand("encode"); encode->parsed()) {
    const bool given = encode->count("value") != 0;
    return settingEncodeCommand(arguments.action, given ? &arguments.value : nullptr,
                                arguments.json);
  }
  return settingDecodeCommand(arguments.action, arguments.setting, arguments.json);
}

}  // namespace

int main(int argc, char** argv) {
  holdStandardDescriptors();
  // A file size limit is an error like a full disk, not an end.
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    CLI::App app("Runs mail through a policy of filter actions.", "kavi");
    app.set_version_flag("--version", std::string("kavi ") + KAVI_VERSION);
    app.footer(kExamples);
    app.require_subcommand(1);
    Arguments arguments;
    addRun(app, arguments);
    addExpand(app, arguments);
    addNotify(app, arguments);
    addAdmin(app, arguments);
    addSpool(app, arguments);
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      // Help and version are no errors; every other way to end here is one of usage.
      return finishOutput(app.exit(error) == 0 ? ExitDone : ExitUsage);
    }
    return finishOutput(dispatch(app, arguments));
  } catch (const std::exception& fault) {
    std::fprintf(stderr, "kavi: %s\n", fault.what());
    return ExitFailed;
  }
}
