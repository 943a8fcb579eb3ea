// `kavi quarantine` and `kavi archive` on the command line.
#include <CLI/CLI.hpp>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "gateway/cli/filed_commands.h"
#include "gateway/cli/spool_commands.h"
#include "gateway/cli/subcommands.h"

namespace gateway::cli {
namespace {

using host::store::MessageKind;

constexpr char kQuarantineExamples[] = R"(Examples:
  kavi quarantine list --config kavi.ini --match invoice   who got it, from whom, and why
  kavi quarantine show --config kavi.ini --message 17      the message itself
  kavi quarantine release --config kavi.ini 17             let it go on: the rule is skipped
  kavi quarantine purge --config kavi.ini                  remove what is past its days)";

constexpr char kArchiveExamples[] = R"(Examples:
  kavi archive list --config kavi.ini --area Sales         what is kept there
  kavi archive release --config kavi.ini 17 --rcpt audit@example.org
                                                           send a copy of it)";

struct FiledArguments {
  FiledOptions options;
  FiledPage page;
  ReleaseOptions release;
  std::string area;
  std::string from;
  bool flag = false;  ///< --message, --yes or --dry-run
};
using Arguments = std::shared_ptr<FiledArguments>;

class FiledCommands {
 public:
  FiledCommands(CLI::App& parent, Chosen& chosen, MessageKind kind)
      : parent_(parent), chosen_(chosen), arguments_(std::make_shared<FiledArguments>()) {
    arguments_->options.kind = kind;
    parent.require_subcommand(1);
  }

  void addAll() {
    addList();
    addShow();
    addRelease();
    addDelete();
    addPurge();
  }

 private:
  CLI::App* add(const char* name, const char* help) {
    CLI::App* command = parent_.add_subcommand(name, help);
    command->add_option("--config,-c", arguments_->options.config, kConfigHelp)->type_name("FILE");
    command->add_option("--state", arguments_->options.state, kStateHelp)->type_name("FOLDER");
    command->add_flag("--json", arguments_->options.json, kJsonHelp);
    return command;
  }

  CLI::Option* addNumbers(CLI::App& command) {
    return command.add_option("number", arguments_->release.rows, "As list shows it")
        ->required()
        ->check(CLI::Range(std::int64_t{1}, std::numeric_limits<std::int64_t>::max()))
        ->type_name("NUMBER");
  }

  /// Lets `command` do `work` when it is the one that is meant.
  template <class Work>
  void choose(CLI::App& command, Work work) {
    command.callback([arguments = arguments_, work, &chosen = chosen_, &command] {
      if (command.get_option_no_throw("--area") != nullptr && command.count("--area") != 0) {
        arguments->page.area = arguments->area;
      }
      if (command.get_option_no_throw("--from") != nullptr && command.count("--from") != 0) {
        arguments->release.from = arguments->from;
      }
      chosen = [arguments, work] { return work(*arguments); };
    });
  }

  void addList() {
    CLI::App* list = add("list", "The messages, those that came first in front");
    list->add_option("--area", arguments_->area, "Only those of this area")->type_name("NAME");
    list->add_option("--match", arguments_->page.match,
                     "Only those with this in subject, sender, a recipient or message id")
        ->type_name("TEXT");
    list->add_option("--after", arguments_->page.after, "Only what stands behind this number")
        ->check(CLI::Range(std::int64_t{0}, std::numeric_limits<std::int64_t>::max()))
        ->type_name("NUMBER");
    list->add_option("--limit", arguments_->page.limit, "At most so many; default: 100")
        ->check(CLI::Range(1, 1'000'000))
        ->type_name("N");
    choose(*list,
           [](const FiledArguments& given) { return filedListCommand(given.options, given.page); });
  }

  void addShow() {
    CLI::App* show = add("show", "What is known of a message, or the message itself");
    addNumbers(*show)->expected(1);
    show->add_flag("--message", arguments_->flag, "The message itself instead, as it lies there");
    choose(*show, [](const FiledArguments& given) {
      return filedShowCommand(given.options, given.release.rows.front(), given.flag);
    });
  }

  void addRelease() {
    const bool archived = arguments_->options.kind == MessageKind::Archived;
    CLI::App* release =
        add("release", archived ? "Send a copy through the listener that scans"
                                : "Let messages go on: they are scanned again, but for the rule "
                                  "that put them here");
    addNumbers(*release);
    release
        ->add_option("--rcpt", arguments_->release.recipients,
                     "Whom it goes to instead, may be repeated")
        ->type_name("ADDRESS")
        ->allow_extra_args(false);
    release->add_option("--from", arguments_->from, "Envelope sender instead; <> for none")
        ->type_name("ADDRESS");
    release->add_flag("--unscanned", arguments_->release.isUnscanned,
                      "Send it to the listener that does not scan");
    if (!archived) {
      release->add_flag("--keep", arguments_->release.keep, "Keep what is stored, too");
    }
    choose(*release, [](const FiledArguments& given) {
      return filedReleaseCommand(given.options, given.release);
    });
  }

  void addDelete() {
    CLI::App* remove = add("delete", "Remove messages for good");
    addNumbers(*remove);
    remove->add_flag("--yes,-y", arguments_->flag, "Do not ask");
    choose(*remove, [](const FiledArguments& given) {
      return filedDeleteCommand(given.options, given.release.rows, given.flag);
    });
  }

  void addPurge() {
    CLI::App* purge = add("purge", "Remove what is past its days; kavi-milter does it by itself");
    purge->add_flag("--dry-run", arguments_->flag, "Only say which");
    choose(*purge, [](const FiledArguments& given) {
      return filedPurgeCommand(given.options, given.flag);
    });
  }

  CLI::App& parent_;
  Chosen& chosen_;
  Arguments arguments_;
};

}  // namespace

void addFiledCommands(CLI::App& app, Chosen& chosen) {
  CLI::App* quarantine = app.add_subcommand("quarantine", "Messages that were put in quarantine");
  quarantine->footer(kQuarantineExamples);
  FiledCommands(*quarantine, chosen, MessageKind::Quarantined).addAll();
  CLI::App* archive = app.add_subcommand("archive", "Messages that were archived");
  archive->footer(kArchiveExamples);
  FiledCommands(*archive, chosen, MessageKind::Archived).addAll();
}

}  // namespace gateway::cli
