#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>

#include "gateway/milter/daemon.h"

int main(int argc, char** argv) {
  using gateway::milter::ExitFailed;
  try {
    CLI::App app("Runs the mail of a mail system through a policy of filter actions.",
                 "kavi-milter");
    app.set_version_flag("--version", std::string("kavi-milter ") + KAVI_VERSION);
    app.footer("Signals: SIGTERM ends it, SIGUSR1 makes it read the policy anew.");
    std::string config = "/etc/kavi/kavi.ini";
    bool checkOnly = false;
    app.add_option("--config,-c", config, "Global settings, an INI file")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_flag("--check", checkOnly, "Only say what is wrong with settings and policy");
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      return app.exit(error) == 0 ? gateway::milter::ExitDone : gateway::milter::ExitUsage;
    }
    return gateway::milter::runDaemon(config, checkOnly);
  } catch (const std::exception& fault) {
    static_cast<void>(std::fprintf(stderr, "kavi-milter: %s\n", fault.what()));
    return ExitFailed;
  }
}
