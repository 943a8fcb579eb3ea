#include "gateway/cli/filed_commands.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stop_token>

#include "gateway/cli/delivery_setup.h"
#include "gateway/cli/envelope.h"
#include "gateway/cli/filed_report.h"
#include "gateway/cli/json_output.h"
#include "gateway/cli/standard_streams.h"
#include "gateway/cli/startup.h"
#include "gateway/cli/terminal.h"
#include "gateway/engine/library_start.h"
#include "host/core/ini_settings.h"
#include "host/core/text_escape.h"
#include "host/delivery/filed_mail.h"

namespace gateway::cli {
namespace {

using host::core::printable;
using host::delivery::AdapterError;
using host::store::IndexEntry;
using host::store::MessageKind;
using host::store::StoreStatus;
using nlohmann::ordered_json;

constexpr std::size_t kBatch = 1000;

std::string textOf(AdapterError error) {
  return host::delivery::adapterErrorText(static_cast<unsigned int>(error));
}

/// The index and the folders that the options name.
class Filed {
 public:
  explicit Filed(const FiledOptions& options) : options_(options) {}

  /// \return the exit status when they cannot be opened, after a complaint; else ExitDone.
  int open() {
    if (!loadSettings(options_.config, settings_)) return ExitUsage;
    if (!readDelivery(settings_, options_.state, delivery_)) return ExitUsage;
    if (!actAsOwner(settings_, options_.state, delivery_)) return ExitFailed;
    log_.emplace(engine::readLogOptions(settings_, 1));
    std::error_code none;
    AdapterError error = AdapterError::MissingFolder;
    // What only looks must not make a folder in the wrong place.
    if (std::filesystem::is_directory(delivery_.stateFolder, none)) {
      error = state_.open(delivery_.stateFolder);
    }
    if (error == AdapterError::None) return ExitDone;
    complain(printable(delivery_.stateFolder) + ": " + textOf(error) +
             " (the state folder: state_folder in section delivery, or --state)");
    return ExitFailed;
  }

  host::store::MessageIndex& index() { return *state_.store(); }
  host::delivery::FiledMail mail() { return {state_, delivery_, &*log_}; }

  /// Complains when there is none.
  bool find(std::int64_t row, IndexEntry& entry) {
    const StoreStatus status = index().findEntry(row, entry);
    if (status.ok() && entry.kind == options_.kind) return true;
    if (status.ok() || status.error == host::store::StoreError::NotFound) {
      complain(std::to_string(row) + ": there is no such message in " +
               (options_.kind == MessageKind::Archived ? "the archive (kavi archive list"
                                                       : "quarantine (kavi quarantine list") +
               " shows the numbers)");
    } else {
      complain(status.text);
    }
    return false;
  }

  /// Those of \p rows that are there, each once; \p status becomes ExitFailed when one is not.
  std::vector<IndexEntry> findAll(const std::vector<std::int64_t>& rows, int& status) {
    std::vector<IndexEntry> entries;
    for (const std::int64_t row : rows) {
      const auto isIt = [row](const IndexEntry& entry) { return entry.row == row; };
      if (std::any_of(entries.begin(), entries.end(), isIt)) continue;
      IndexEntry entry;
      if (find(row, entry)) {
        entries.push_back(std::move(entry));
      } else {
        status = ExitFailed;
      }
    }
    return entries;
  }

  /// \return ExitFailed
  static int complainOf(const IndexEntry& entry, AdapterError error, const std::string& words) {
    std::string text = std::to_string(entry.row) + ": " + textOf(error);
    if (error == AdapterError::NotFound) {
      text = std::to_string(entry.row) + ": its file is gone (released or deleted meanwhile?)";
    }
    if (error == AdapterError::UnderWay) {
      text = std::to_string(entry.row) + ": is being released or deleted by somebody else";
    }
    if (error == AdapterError::NoRecipients) text += " that is known (write --rcpt ADDRESS)";
    if (error == AdapterError::NoDestination) {
      text += " (set scan_host, or with --unscanned plain_host, in section delivery)";
    }
    if (!words.empty()) text += ": " + words;
    complain(printable(text + ", " + entry.path));
    return ExitFailed;
  }

 private:
  const FiledOptions& options_;
  host::core::IniSettings settings_;
  host::delivery::DeliverySettings delivery_;
  host::delivery::DeliveryState state_;
  std::optional<host::core::ProcessLog> log_;
};

bool holds(const std::string& text, const std::string& lower) {
  const auto same = [](char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) == static_cast<unsigned char>(b);
  };
  return std::search(text.begin(), text.end(), lower.begin(), lower.end(), same) != text.end();
}

bool matches(const IndexEntry& entry, const std::string& lower) {
  return lower.empty() || holds(entry.subject, lower) || holds(entry.sender.value_or(""), lower) ||
         holds(entry.messageId, lower) ||
         std::any_of(entry.recipients.begin(), entry.recipients.end(),
                     [&](const std::string& recipient) { return holds(recipient, lower); });
}

/// The first messages of a page, one more than it holds if there are that many.
StoreStatus readPage(host::store::MessageIndex& index, MessageKind kind, const FiledPage& page,
                     std::vector<IndexEntry>& found) {
  std::string lower = page.match;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const std::size_t batch = lower.empty() ? page.limit + 1 : kBatch;
  host::store::IndexPage wanted{kind, page.area, page.after, batch};
  std::vector<IndexEntry> entries;
  do {
    StoreStatus status = index.list(wanted, entries);
    if (!status.ok()) return status;
    for (IndexEntry& entry : entries) {
      wanted.afterRow = entry.row;
      if (found.size() <= page.limit && matches(entry, lower)) found.push_back(std::move(entry));
    }
  } while (entries.size() == batch && found.size() <= page.limit);
  return {};
}

/// For a message that was released and stayed all the same, or its line of the list did.
std::string whatIsLeftToDo(const IndexEntry& entry) {
  return " (it was released: do not release it again, but take it away with kavi quarantine "
         "delete " +
         std::to_string(entry.row) + ")";
}

bool agreed(const std::vector<IndexEntry>& entries) {
  for (const IndexEntry& entry : entries) printAside(filedLine(entry));
  printAside("Delete " + counted(entries.size(), "message", "messages") + " for good? [y/N] ");
  std::string answer;
  return std::getline(std::cin, answer) && (answer == "y" || answer == "yes");
}

/// \return false after a complaint
bool readOrder(const ReleaseOptions& release, host::delivery::ReleaseOrder& order) {
  order.isUnscanned = release.isUnscanned;
  std::vector<std::string> given = release.recipients;
  if (release.from) given.push_back(*release.from);
  for (const std::string& text : given) {
    if (plainAddress(text)) continue;
    complain("'" + printable(text) + "' is no address");
    return false;
  }
  for (const std::string& text : release.recipients) {
    order.envelope.recipients.push_back(*plainAddress(text));
  }
  if (release.from) order.envelope.sender = *plainAddress(*release.from);
  return true;
}

}  // namespace

int filedListCommand(const FiledOptions& options, const FiledPage& page) {
  Filed filed(options);
  if (const int status = filed.open(); status != ExitDone) return status;
  std::vector<IndexEntry> entries;
  const StoreStatus status = readPage(filed.index(), options.kind, page, entries);
  if (!status.ok()) {
    complain(status.text);
    return ExitFailed;
  }
  const bool more = entries.size() > page.limit;
  if (more) entries.resize(page.limit);
  printText(options.json ? filedListJson(entries) : filedListText(entries, more));
  return ExitDone;
}

int filedShowCommand(const FiledOptions& options, std::int64_t row, bool message) {
  Filed filed(options);
  if (const int status = filed.open(); status != ExitDone) return status;
  IndexEntry entry;
  if (!filed.find(row, entry)) return ExitFailed;
  if (!message) {
    printText(options.json ? filedJson(entry) : filedText(entry));
    return ExitDone;
  }
  std::string bytes;
  const AdapterError error = filed.mail().read(entry, bytes);
  if (error != AdapterError::None) return Filed::complainOf(entry, error, "");
  printText(bytes);
  return ExitDone;
}

int filedReleaseCommand(const FiledOptions& options, const ReleaseOptions& release) {
  host::delivery::ReleaseOrder order;
  if (!readOrder(release, order)) return ExitUsage;
  Filed filed(options);
  int status = filed.open();
  if (status != ExitDone) return status;
  std::size_t done = 0;
  for (const IndexEntry& entry : filed.findAll(release.rows, status)) {
    host::delivery::ReleaseOrder own = order;
    if (!release.from) own.envelope.sender = entry.sender;
    if (release.recipients.empty()) own.envelope.recipients = entry.recipients;
    own.isKept = release.keep || options.kind == MessageKind::Archived;
    host::delivery::ReleaseReport report;
    const AdapterError error = filed.mail().release(entry, own, report);
    if (report.isQueued) ++done;
    if (report.scannedAgain) {
      remark(std::to_string(entry.row) +
             ": does not say which rule put it aside: all rules scan it again");
    }
    if (error == AdapterError::None) continue;
    if (report.isQueued) report.fault += whatIsLeftToDo(entry);
    status = Filed::complainOf(entry, error, report.fault);
  }
  if (done != 0) noteChange(counted(done, "message", "messages") + " released into the spool");
  if (options.json) {
    ordered_json json = {{"released", done}};
    addComplaints(json);
    printJson(json);
  } else {
    printLine(counted(done, "message", "messages") +
              " released into the spool (kavi spool send sends them, and so does kavi-milter)");
  }
  return status;
}

int filedDeleteCommand(const FiledOptions& options, const std::vector<std::int64_t>& rows,
                       bool yes) {
  Filed filed(options);
  int status = filed.open();
  if (status != ExitDone) return status;
  const std::vector<IndexEntry> entries = filed.findAll(rows, status);
  if (entries.empty()) return status;
  if (!yes && !isTerminal(STDIN_FILENO)) {
    complain("nothing deleted: nobody is there to be asked (write --yes)");
    return ExitUsage;
  }
  if (!yes && !agreed(entries)) {
    complain("nothing deleted");
    return ExitFailed;
  }
  std::size_t done = 0;
  for (const IndexEntry& entry : entries) {
    std::string words;
    const AdapterError error = filed.mail().remove(entry, words);
    if (error == AdapterError::None) ++done;
    if (error != AdapterError::None) status = Filed::complainOf(entry, error, words);
  }
  if (done != 0) noteChange(counted(done, "message", "messages") + " deleted");
  if (options.json) {
    ordered_json json = {{"deleted", done}};
    addComplaints(json);
    printJson(json);
  } else {
    printLine(counted(done, "message", "messages") + " deleted");
  }
  return status;
}

int filedPurgeCommand(const FiledOptions& options, bool dryRun) {
  Filed filed(options);
  if (const int status = filed.open(); status != ExitDone) return status;
  if (dryRun) {
    std::vector<IndexEntry> due;
    const StoreStatus status =
        filed.index().listExpired(std::time(nullptr), std::size_t{1'000'000}, due);
    std::erase_if(due, [&](const IndexEntry& entry) { return entry.kind != options.kind; });
    if (!status.ok()) {
      complain(status.text);
      return ExitFailed;
    }
    printText(options.json ? filedListJson(due) : filedListText(due, false));
    return ExitDone;
  }
  host::delivery::PurgeReport report;
  std::string words;
  const AdapterError error =
      filed.mail().purge({std::time(nullptr), options.kind}, std::stop_token(), report, words);
  if (report.removed != 0) noteChange(counted(report.removed, "message", "messages") + " removed");
  if (error != AdapterError::None) complain(textOf(error) + (words.empty() ? "" : ": " + words));
  if (report.kept != 0) {
    complain(counted(report.kept, "message", "messages") + " could not be removed; " +
             printable(report.firstFault));
  }
  if (options.json) {
    ordered_json json = {{"removed", report.removed}, {"kept", report.kept}};
    addComplaints(json);
    printJson(json);
  } else {
    printLine(counted(report.removed, "message", "messages") + " removed");
  }
  return error == AdapterError::None && report.kept == 0 ? ExitDone : ExitFailed;
}

}  // namespace gateway::cli
