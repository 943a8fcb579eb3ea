// The command `kavi`.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

#include "gateway/cli/standard_streams.h"
#include "gateway/cli/startup.h"
#include "gateway/cli/subcommands.h"

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

}  // namespace

int main(int argc, char** argv) {
  holdStandardDescriptors();
  // A file size limit is an error like a full disk, not an end.
  std::signal(SIGXFSZ, SIG_IGN);
  try {
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
    // Last: a subcommand starts with the examples that its parent has by then.
    app.footer(kExamples);
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      // Help and version are no errors; every other way to end here is one of usage.
      return finishOutput(app.exit(error) == 0 ? ExitDone : ExitUsage);
    }
    return finishOutput(chosen());
  } catch (const std::exception& fault) {
    std::fprintf(stderr, "kavi: %s\n", fault.what());
    return ExitFailed;
  }
}
