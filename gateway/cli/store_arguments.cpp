// `kavi store` on the command line.
#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <memory>

#include "gateway/cli/store_commands.h"
#include "gateway/cli/subcommands.h"

namespace gateway::cli {
namespace {

constexpr char kExamples[] = R"(Examples:
  kavi store init sqlite:/var/lib/kavi/policy.sqlite   make a store in a file
  kavi store init postgresql://kavi@db.example.org/kavi
                                                   make one in a database, which is there
  kavi store check --config kavi.ini               damage, and what no gateway could use
  kavi store audit --config kavi.ini --after 120   who changed what, behind row 120

A password in a location can be seen by everybody who sees the list of processes: keep it in the
settings file, or in the file that PGPASSFILE names.)";

struct StoreArguments {
  StoreOptions options;
  PageOptions page;
  bool json = false;
};

CLI::App* addTo(CLI::App& store, const char* name, const char* help,
                const std::shared_ptr<StoreArguments>& arguments) {
  CLI::App* command = store.add_subcommand(name, help);
  command->add_option("--store,location", arguments->options.location, kStoreHelp)
      ->type_name("LOCATION");
  command->add_option("--config,-c", arguments->options.config, kConfigHelp)->type_name("FILE");
  command->add_flag("--json", arguments->json, kJsonHelp);
  return command;
}

}  // namespace

void addStoreCommands(CLI::App& app, Chosen& chosen) {
  CLI::App* store = app.add_subcommand(
      "store", "Make, bring up to date and examine the store of objects and rules");
  store->require_subcommand(1);
  store->footer(kExamples);
  const auto arguments = std::make_shared<StoreArguments>();
  using Command = int (*)(const StoreOptions&, bool);
  const auto add = [&](const char* name, const char* help, Command command) {
    addTo(*store, name, help, arguments)->callback([arguments, command, &chosen] {
      chosen = [arguments, command] { return command(arguments->options, arguments->json); };
    });
  };
  add("init", "Make a store; one that is there is left alone", storeInitCommand);
  add("migrate", "Bring an older store to this program's version", storeMigrateCommand);
  add("check", "Look for damage, and for what no gateway could use", storeCheckCommand);
  CLI::App* audit =
      addTo(*store, "audit", "Who changed what, and when; the oldest first", arguments);
  audit->add_option("--after", arguments->page.after, "Only what stands behind this row")
      ->check(CLI::Range(std::int64_t{0}, std::numeric_limits<std::int64_t>::max()))
      ->type_name("ROW");
  audit->add_option("--limit", arguments->page.limit, "At most so many rows")
      ->check(CLI::Range(1, 1'000'000))
      ->type_name("N");
  audit->callback([arguments, &chosen] {
    chosen = [arguments] {
      return storeAuditCommand(arguments->options, arguments->page, arguments->json);
    };
  });
}

}  // namespace gateway::cli
