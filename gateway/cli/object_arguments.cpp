// `kavi object` on the command line.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "gateway/cli/object_commands.h"
#include "gateway/cli/subcommands.h"

namespace gateway::cli {
namespace {

constexpr char kExamples[] = R"(Examples:
  kavi object list --config kavi.ini               what there is
  kavi object list stamp --after 700 --limit 50    a part of it
  kavi object show stamp legal                     everything about one; by its id, too
  kavi object add stamp legal text='Confidential.' position=end
  kavi object add quarantine-area virus aging_days=7
  kavi object add notification --from tell-admin.yaml
                                                   an entry as in a policy
  kavi object update stamp legal text='Private.'   the other fields stay as they are
  kavi object update 7 --name imprint
  kavi object remove stamp legal                   unless a rule uses it

Types: stamp, notification, quarantine-area, archive-area. Fields are the keys of a policy
(docs/policy.md): KEY= goes back to the usual value, a key given again makes a list.
The store is named by --store or by the settings file of --config.)";

struct ObjectArguments {
  ObjectOptions options;
  ObjectListOptions list;
  ContentOptions content;
  std::vector<std::string> words;
  std::string name;
  std::string setting;
  bool entry = false;
};
using Arguments = std::shared_ptr<ObjectArguments>;

CLI::App* addTo(CLI::App& object, const char* name, const char* help, const Arguments& arguments) {
  CLI::App* command = object.add_subcommand(name, help);
  ObjectOptions& options = arguments->options;
  command->add_option("--store", options.store.location, kStoreHelp)->type_name("LOCATION");
  command->add_option("--config,-c", options.store.config, kConfigHelp)->type_name("FILE");
  command->add_option("--owner", options.owner, "Whose objects; policies have those of 0")
      ->type_name("N");
  command->add_flag("--json", options.json, kJsonHelp);
  return command;
}

void addContent(CLI::App& command, const Arguments& arguments) {
  ContentOptions& content = arguments->content;
  command.add_option("--from", content.entryFile, "An entry as in a policy; - for standard input")
      ->type_name("FILE");
  command.add_option("--setting", arguments->setting, "The settings string itself")
      ->type_name("STRING");
  command
      .add_option("--setting-file", content.settingFile, "A file that holds it, to the last byte")
      ->type_name("FILE");
}

/// What the options of `command` say an object holds.
ContentOptions contentOf(const CLI::App& command, const ObjectArguments& arguments) {
  ContentOptions content = arguments.content;
  if (command.count("--setting") != 0) content.setting = arguments.setting;
  return content;
}

void addReading(CLI::App& object, Chosen& chosen, const Arguments& arguments) {
  CLI::App* list = addTo(object, "list", "What there is", arguments);
  list->add_option("type", arguments->list.type, "Only these")->type_name("TYPE");
  list->add_option("--after", arguments->list.after, "Only ids above this one")->type_name("ID");
  list->add_option("--limit", arguments->list.limit, "At most so many, by id")
      ->check(CLI::Range(1, 1'000'000))
      ->type_name("N");
  list->callback([arguments, &chosen] {
    chosen = [arguments] { return objectListCommand(arguments->options, arguments->list); };
  });

  CLI::App* show = addTo(object, "show", "Fields, settings string and rules of one", arguments);
  show->add_option("object", arguments->words, "Its ID, or its TYPE and NAME")
      ->required()
      ->type_name("ID|TYPE NAME");
  show->add_flag("--entry", arguments->entry, "Only its entry as in a policy, which --from takes");
  show->callback([arguments, &chosen] {
    chosen = [arguments] {
      return objectShowCommand(arguments->options, arguments->words, arguments->entry);
    };
  });
}

void addChanging(CLI::App& object, Chosen& chosen, const Arguments& arguments) {
  CLI::App* add = addTo(object, "add", "Add one", arguments);
  add->add_option("object", arguments->words, "What to add, and its fields")
      ->required()
      ->type_name("TYPE NAME [KEY=VALUE...]");
  addContent(*add, arguments);
  add->callback([add, arguments, &chosen] {
    chosen = [add, arguments] {
      return objectAddCommand(arguments->options, arguments->words, contentOf(*add, *arguments));
    };
  });

  CLI::App* update = addTo(object, "update", "Change one; what is not given stays", arguments);
  update->add_option("object", arguments->words, "What to change, and the fields that change")
      ->required()
      ->type_name("ID|TYPE NAME [KEY=VALUE...]");
  update->add_option("--name", arguments->name, "Its new name")->type_name("NAME");
  addContent(*update, arguments);
  update->callback([update, arguments, &chosen] {
    chosen = [update, arguments] {
      std::optional<std::string> name;
      if (update->count("--name") != 0) name = arguments->name;
      return objectUpdateCommand(arguments->options, arguments->words,
                                 contentOf(*update, *arguments), name);
    };
  });

  CLI::App* remove = addTo(object, "remove", "Remove one, unless a rule uses it", arguments);
  remove->add_option("object", arguments->words, "Its ID, or its TYPE and NAME")
      ->required()
      ->type_name("ID|TYPE NAME");
  remove->callback([arguments, &chosen] {
    chosen = [arguments] { return objectRemoveCommand(arguments->options, arguments->words); };
  });
}

}  // namespace

void addObjectCommands(CLI::App& app, Chosen& chosen) {
  CLI::App* object =
      app.add_subcommand("object", "Stamps, notifications and areas in a store, one at a time");
  object->require_subcommand(1);
  object->footer(kExamples);
  const auto arguments = std::make_shared<ObjectArguments>();
  addReading(*object, chosen, arguments);
  addChanging(*object, chosen, arguments);
}

}  // namespace gateway::cli
