#include "gateway/cli/spool_commands.h"

#include <unistd.h>

#include <array>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "gateway/cli/delivery_setup.h"
#include "gateway/cli/json_output.h"
#include "gateway/cli/spool_report.h"
#include "gateway/cli/startup.h"
#include "gateway/cli/submission.h"
#include "gateway/cli/terminal.h"
#include "gateway/engine/library_start.h"
#include "host/core/ini_settings.h"
#include "host/core/text_escape.h"
#include "host/delivery/adapter_error.h"
#include "host/delivery/delivery_state.h"
#include "host/delivery/spool_control.h"

namespace gateway::cli {
namespace {

using host::core::printable;
using host::delivery::AdapterError;
using host::delivery::SpoolItem;

/// The spool that the options name.
class OpenSpool {
 public:
  /// \return the exit status when it cannot be opened, after a complaint; else ExitDone.
  int open(const SpoolOptions& options) {
    if (!loadSettings(options.config, settings_)) return ExitUsage;
    if (!readDelivery(settings_, options.state, delivery_)) return ExitUsage;
    if (!actAsOwner(settings_, options.state, delivery_)) return ExitFailed;
    std::error_code none;
    AdapterError error = AdapterError::MissingFolder;
    // What only looks must not make a folder in the wrong place.
    if (std::filesystem::is_directory(delivery_.stateFolder, none))
      error = state_.open(delivery_.stateFolder);
    if (error == AdapterError::None) return ExitDone;
    complain(printable(path()) + ": " + textOf(error) +
             " (the state folder: state_folder in section delivery, or --state)");
    return ExitFailed;
  }

  host::core::IniSettings& settings() { return settings_; }
  host::delivery::DeliveryState& state() { return state_; }
  host::delivery::Spool& spool() { return state_.spool(); }
  const host::delivery::DeliverySettings& delivery() const { return delivery_; }
  host::delivery::SpoolControl control() {
    return host::delivery::SpoolControl(spool(), delivery_.retry);
  }
  std::string path() const {
    return host::delivery::DeliveryState::spoolPath(delivery_.stateFolder);
  }

  static std::string textOf(AdapterError error) {
    return host::delivery::adapterErrorText(static_cast<unsigned int>(error));
  }

  /// Removes a message for good, and its row of the index.
  AdapterError remove(const SpoolItem& item) {
    const AdapterError removed = control().remove(item.id);
    if (removed != AdapterError::None || item.entry.kind != host::delivery::kPostponedKind) {
      return removed;
    }
    const host::store::StoreStatus status = state_.spoolIndex()->remove(item.id);
    if (!status.ok()) {
      complain(printable(item.id) +
               ": deleted, but its row of the index stays until the next "
               "start: " +
               printable(status.text));
    }
    return removed;
  }

  /// Says what went wrong with a message. \return ExitFailed
  int complainOf(const std::string& id, AdapterError error) const {
    std::string text = printable(id) + ": " + textOf(error);
    if (error == AdapterError::NotFound) text += " in " + printable(path());
    if (error == AdapterError::UnderWay) text = printable(id) + ": is being sent at this moment";
    complain(text);
    return ExitFailed;
  }

 private:
  host::core::IniSettings settings_;
  host::delivery::DeliverySettings delivery_;
  host::delivery::DeliveryState state_;
};

bool agreed(const std::vector<SpoolItem>& items) {
  for (const SpoolItem& item : items) {
    printAside(spoolText(item, std::time(nullptr)));
  }
  printAside("Delete " + counted(items.size(), "message", "messages") + " for good? [y/N] ");
  std::string answer;
  return std::getline(std::cin, answer) && (answer == "y" || answer == "yes");
}

}  // namespace

int spoolListCommand(const SpoolOptions& options) {
  OpenSpool open;
  if (const int status = open.open(options); status != ExitDone) return status;
  std::vector<SpoolItem> items;
  if (const AdapterError error = open.control().list(items); error != AdapterError::None) {
    return open.complainOf(open.path(), error);
  }
  const std::string text = options.json ? spoolListJson(items, std::time(nullptr))
                                        : spoolListText(items, std::time(nullptr));
  printText(text);
  for (const SpoolItem& item : items) {
    if (item.condition == SpoolItem::Condition::Unreadable) return ExitFailed;
  }
  return ExitDone;
}

int spoolShowCommand(const SpoolOptions& options, const std::string& id, bool message) {
  OpenSpool open;
  if (const int status = open.open(options); status != ExitDone) return status;
  std::string text;
  AdapterError error = AdapterError::None;
  bool readable = true;
  if (message) {
    host::delivery::SpoolEntry entry;
    error = open.spool().read(id, entry, text);
  } else {
    SpoolItem item;
    std::vector<host::delivery::SpoolEvent> events;
    error = open.control().show(id, item, events);
    text = options.json ? spoolShowJson(item, events, std::time(nullptr))
                        : spoolShowText(item, events, std::time(nullptr));
    readable = item.condition != SpoolItem::Condition::Unreadable;
  }
  if (error != AdapterError::None) return open.complainOf(id, error);
  printText(text);
  return readable ? ExitDone : ExitFailed;
}

int spoolRetryCommand(const SpoolOptions& options, const std::vector<std::string>& ids, bool all) {
  if (all == !ids.empty()) {
    complain(all ? "--all leaves no place for ids" : "no message is named (write ids, or --all)");
    return ExitUsage;
  }
  OpenSpool open;
  int status = open.open(options);
  if (status != ExitDone) return status;
  std::vector<std::string> wanted = ids;
  if (all) {
    const AdapterError error = open.spool().list(wanted);
    if (error != AdapterError::None) return open.complainOf(open.path(), error);
  }
  std::size_t done = 0;
  for (const std::string& id : wanted) {
    const AdapterError error = open.control().retry(id, std::time(nullptr));
    if (error == AdapterError::None) ++done;
    // Of all that were there some may have gone meanwhile.
    if (error == AdapterError::None || (all && error == AdapterError::NotFound)) continue;
    status = open.complainOf(id, error);
  }
  printLine(counted(done, "message is", "messages are") +
            " due now (kavi spool send sends them, and so does kavi run --deliver)");
  return status;
}

int spoolDeleteCommand(const SpoolOptions& options, const std::vector<std::string>& ids, bool yes) {
  OpenSpool open;
  int status = open.open(options);
  if (status != ExitDone) return status;
  std::vector<SpoolItem> items;
  std::vector<host::delivery::SpoolEvent> events;
  for (const std::string& id : ids) {
    SpoolItem item;
    const AdapterError error = open.control().show(id, item, events);
    if (error == AdapterError::None) {
      items.push_back(std::move(item));
    } else {
      status = open.complainOf(id, error);
    }
  }
  if (items.empty()) return status;
  if (!yes && !isTerminal(STDIN_FILENO)) {
    complain("nothing deleted: nobody is there to be asked (write --yes)");
    return ExitUsage;
  }
  if (!yes && !agreed(items)) {
    complain("nothing deleted");
    return ExitFailed;
  }
  std::size_t done = 0;
  for (const SpoolItem& item : items) {
    const AdapterError error = open.remove(item);
    if (error == AdapterError::None) ++done;
    if (error != AdapterError::None) status = open.complainOf(item.id, error);
  }
  printLine(counted(done, "message", "messages") + " deleted");
  return status;
}

int spoolSendCommand(const SpoolOptions& options, bool verbose) {
  OpenSpool open;
  if (const int status = open.open(options); status != ExitDone) return status;
  const host::delivery::SealKeys keys(open.delivery().sealKeyPath());
  // Says nothing by itself unless it is told to: the report carries its lines.
  host::core::ProcessLog log(engine::readLogOptions(open.settings(), 0));
  const Submission submission = submitSpool(open.state(), open.delivery(), keys, log, verbose);
  const std::string text = options.json
                               ? jsonReport(submission) + "\n"
                               : textReport(submission, Style(Colour::Auto, STDOUT_FILENO));
  printText(text);
  return submission.good() ? ExitDone : ExitUnsent;
}

}  // namespace gateway::cli
