// The command `kavi`.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/cli/complaints.h"
#include "gateway/cli/json_output.h"
#include "gateway/cli/standard_streams.h"
#include "gateway/cli/startup.h"
#include "gateway/cli/subcommands.h"
#include "gateway/policy/suggest.h"

namespace {

using namespace gateway::cli;  // NOLINT(google-build-using-namespace): the program itself

constexpr char kExamples[] = R"(Examples:
  kavi run --policy policy.yaml mail.eml           what the policy does to one message
  kavi policy check policy.yaml                    errors and doubts, before it is used
  kavi expand '%SUBJECT% from %SENDER%' mail.eml   a template with its tokens replaced
  kavi actions                                     what a rule can do
  kavi run --deliver --config kavi.ini --policy policy.yaml --out result mail.eml
                                                   do it: file, hand off and send
  kavi spool list --config kavi.ini                what waits to be sent
  kavi run --help                                  more of a command, with examples

Exit status: 0 all done, 1 an action failed, or a message, folder or store could not be used,
2 wrong or unreadable command line, settings or policy, 3 not everything in the spool that was due
could be sent.)";

/// The word of the command line that should name a subcommand and names none; empty when there is
/// none such. \param known  receives what could stand there
std::string unknownCommand(const CLI::App& app, int argc, char** argv,
                           std::vector<std::string_view>& known) {
  const CLI::App* at = &app;
  for (int i = 1; i < argc && at->get_require_subcommand_min() != 0; ++i) {
    std::string word = argv[i];
    if (word.starts_with("-")) return {};
    const CLI::App* next = nullptr;
    for (const CLI::App* child : at->get_subcommands([](const CLI::App*) { return true; })) {
      known.emplace_back(child->get_name());
      if (child->get_name() == word) next = child;
    }
    if (next == nullptr) return word;
    known.clear();
    at = next;
  }
  return {};
}

/// What is wrong with a command line. What the parser cannot convert is always to be a number.
std::string textOf(const CLI::ParseError& error) {
  constexpr std::string_view kPrefix = "Could not convert: ";
  constexpr std::string_view kEquals = " = ";
  const std::string text = error.what();
  const std::size_t equals = text.find(kEquals);
  if (!text.starts_with(kPrefix) || equals == std::string::npos) return text;
  return text.substr(kPrefix.size(), equals - kPrefix.size()) + ": " +
         gateway::policy::inQuotes(text.substr(equals + kEquals.size())) +
         " is no number that can stand there (write a whole number, such as 15)";
}

/// Whether the command line asks for JSON. It is looked at as it stands: one that cannot be read
/// has no options yet.
bool wantsJson(int argc, char** argv) {
  for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i) {
    if (std::string_view(argv[i]) == "--json") return true;
  }
  return false;
}

/// Reads the command line and does what it asks for. \return the exit status
int runCommandLine(int argc, char** argv) {
  CLI::App app("Runs mail through a policy of filter actions.", "kavi");
  app.set_version_flag("--version", std::string("kavi ") + KAVI_VERSION);
  app.require_subcommand(1);
  Chosen chosen;
  addRunCommand(app, chosen);
  addMessageCommands(app, chosen);
  addPolicyCommands(app, chosen);
  addLookupCommands(app, chosen);
  addSpoolCommands(app, chosen);
  addFiledCommands(app, chosen);
  addStoreCommands(app, chosen);
  addObjectCommands(app, chosen);
  addRuleCommands(app, chosen);
  // Last: a subcommand starts with the examples that its parent has by then.
  app.footer(kExamples);
  std::vector<std::string_view> known;
  if (const std::string word = unknownCommand(app, argc, argv, known); !word.empty()) {
    complain("unknown command " + gateway::policy::inQuotes(word) + " " +
             gateway::policy::remedyFor(word, known));
    return ExitUsage;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& done) {
    // Help and version.
    return app.exit(done);
  } catch (const CLI::ParseError& error) {
    complainOfPlace(textOf(error));
    static_cast<void>(std::fputs("Run with --help for more information.\n", stderr));
    return ExitUsage;
  }
  return chosen();
}

/// The same; whatever goes wrong is told. \return the exit status
int runGuarded(int argc, char** argv) {
  try {
    return runCommandLine(argc, argv);
  } catch (const std::exception& fault) {
    complain(fault.what());
    return ExitFailed;
  }
}

}  // namespace

int main(int argc, char** argv) {
  holdStandardDescriptors();
  // A file size limit is an error like a full disk, not an end.
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
  try {
    const bool asJson = wantsJson(argc, argv);
    if (asJson) keepComplaints();
    const int status = runGuarded(argc, argv);
    if (asJson && status != ExitDone) printFailure();
    return finishOutput(status);
  } catch (const std::exception& fault) {
    // No memory, not even for the words of a complaint.
    static_cast<void>(std::fprintf(stderr, "kavi: %s\n", fault.what()));
    return ExitFailed;
  }
}
