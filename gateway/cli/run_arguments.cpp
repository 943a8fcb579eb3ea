// `kavi run` on the command line.
#include <CLI/CLI.hpp>
#include <map>
#include <memory>
#include <string>

#include "gateway/cli/run_command.h"
#include "gateway/cli/spool_commands.h"
#include "gateway/cli/standard_streams.h"
#include "gateway/cli/subcommands.h"

namespace gateway::cli {
namespace {

constexpr char kExamples[] = R"(Examples:
  kavi run --policy policy.yaml mail.eml           what the policy does to one message
  kavi run --policy policy.yaml --out result inbox the same for a folder, results into result/
  kavi run --policy policy.yaml --diff mail.eml    and how the message changes, decoded
  kavi run --policy policy.yaml --json - < mail    for programs: one JSON object per message
  kavi run --deliver --config kavi.ini --policy policy.yaml --out result mail.eml
                                                   do it: file, hand off and send)";

struct RunArguments {
  RunOptions options;
  std::string from;
};

void addEnvelope(CLI::App& run, RunArguments& arguments) {
  run.add_option("--from", arguments.from,
                 "Envelope sender; else that of Return-Path or From. <> is the null sender")
      ->type_name("ADDRESS");
  run.add_option("--rcpt", arguments.options.recipients,
                 "Envelope recipient, may be repeated; else those of Delivered-To, or To and Cc")
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
  CLI::Option* trusted =
      run.add_flag("--trusted", arguments.options.trusted,
                   "Reprocessing fields of the inputs count as if they were sealed: rules that "
                   "they name are skipped");
  run.add_flag("--reinjected", arguments.options.reinjected,
               "The inputs come from the listener that mail is sent back to: their reprocessing "
               "fields count with a seal that holds")
      ->excludes(trusted);
}

void addReport(CLI::App& run, RunOptions& options) {
  run.add_flag("--diff,-d", options.diff,
               "Show how messages changed: header, texts and list of attachments, decoded");
  run.add_flag("--json", options.json, "One JSON object per message and line");
  run.add_flag("--verbose,-v", options.verbose,
               "Show log lines, and what is wrong with a message's form");
  run.add_flag("--quiet,-q", options.quiet, "Leave out messages that no rule matched");
  addColour(run, options.colour);
}

}  // namespace

void addColour(CLI::App& command, Colour& colour) {
  command.add_option("--color", colour, "When to colour: auto, always, never")
      ->transform(CLI::CheckedTransformer(std::map<std::string, Colour>{
          {"auto", Colour::Auto}, {"always", Colour::Always}, {"never", Colour::Never}}))
      ->type_name("WHEN");
}

void addRunCommand(CLI::App& app, Chosen& chosen) {
  auto arguments = std::make_shared<RunArguments>();
  RunOptions& options = arguments->options;
  CLI::App* run =
      app.add_subcommand("run",
                         "Run a policy on messages and say what it does; nothing is sent without "
                         "--deliver");
  run->footer(kExamples);
  addPolicySource(*run, options.policy, "The policy file");
  run->add_option("--out,-o", options.out,
                  "Write the resulting messages into this folder, under the inputs' names; what "
                  "would be sent or filed goes into named folders beside them")
      ->type_name("FOLDER");
  run->add_option("--config,-c", options.config, kConfigHelp)->type_name("FILE");
  run->add_option("--jobs,-j", options.jobs, "Messages to run at once; default: one per processor")
      ->check(CLI::Range(1U, 1024U))
      ->type_name("N");
  run->add_flag("--deliver", options.deliver,
                "Act for real: file, hand off and send as the settings say; what goes on is "
                "written to --out");
  run->add_option("--state", options.state, kStateHelp)->type_name("FOLDER");
  addEnvelope(*run, *arguments);
  addReport(*run, options);
  run->add_option("inputs", options.inputs, "Files, folders, mbox files, or - for standard input")
      ->required()
      ->type_name("FILE|FOLDER|MBOX|-");
  run->callback([run, arguments, &chosen] {
    chosen = [run, arguments] {
      if (run->count("--from") != 0) arguments->options.from = arguments->from;
      if (arguments->options.deliver) ignoreBrokenPipes();
      return runCommand(arguments->options);
    };
  });
}

}  // namespace gateway::cli
