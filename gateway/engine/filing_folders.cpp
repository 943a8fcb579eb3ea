#include "gateway/engine/filing_folders.h"

#include <algorithm>

#include "host/core/folder_access.h"
#include "host/delivery/adapter_error.h"

namespace gateway::engine {
namespace {

using host::delivery::AdapterError;
using host::store::MessageKind;

bool uses(const policy::Snapshot& policy, KaviAction::ActionType type) {
  return std::any_of(policy.rules().begin(), policy.rules().end(), [type](const auto& rule) {
    return std::any_of(rule.actions.begin(), rule.actions.end(),
                       [type](const auto& action) { return action.spec->type == type; });
  });
}

constexpr char kQuarantineKey[] = "queue_quarantine";
constexpr char kArchiveKey[] = "queue_archive";

void checkFolder(const std::string& folder, const std::string& setting,
                 std::vector<std::string>& faults) {
  using host::core::FileError;
  const FileError error = host::core::mayKeepFiles(folder);
  if (error == FileError::None) return;
  faults.push_back(folder + ": " + host::core::fileErrorText(error) + " (" + setting +
                   "; install -d -o USER -m 0700 makes a folder for a user)");
}

void checkSetFolder(const char* key, Kavi::GlobalSetting& settings,
                    std::vector<std::string>& faults) {
  std::string folder;
  settings.getString(key, folder, "general", 0);
  checkFolder(folder, std::string(key) + " in section general", faults);
}

std::string prepare(const char* key, MessageKind kind, Kavi::GlobalSetting& settings,
                    host::delivery::DeliveryState& state, std::vector<std::string>& notes) {
  std::string folder;
  settings.getString(key, folder, "general", 0);
  host::delivery::SweepReport report;
  std::string words;
  const AdapterError error = state.prepareFiling(kind, folder, report, words);
  if (error != AdapterError::None) {
    return folder + ": " + host::delivery::adapterErrorText(static_cast<unsigned int>(error)) +
           " (" + key + " in section general" + (words.empty() ? "" : ": " + words) + ")";
  }
  if (report.rowsRemoved + report.filesAdopted != 0) {
    notes.push_back(folder + ": brought in line with the index: " +
                    std::to_string(report.filesAdopted) + " messages added to it, " +
                    std::to_string(report.rowsRemoved) + " rows without a message removed");
  }
  return {};
}

std::string prepareSpool(host::delivery::DeliveryState& state, std::vector<std::string>& notes) {
  host::delivery::SpoolSweepReport report;
  std::string words;
  const AdapterError error = state.prepareSpool(report, words);
  if (error != AdapterError::None) {
    return std::string("the spool: ") +
           host::delivery::adapterErrorText(static_cast<unsigned int>(error)) +
           (words.empty() ? "" : " (" + words + ")");
  }
  if (report.rowsRemoved + report.rowsAdded != 0) {
    notes.push_back("the spool: brought in line with the index: " +
                    std::to_string(report.rowsAdded) + " postponed messages added to it, " +
                    std::to_string(report.rowsRemoved) + " rows without a message removed");
  }
  return {};
}

}  // namespace

std::string prepareFilingFolders(const policy::Snapshot& policy, Kavi::GlobalSetting& settings,
                                 host::delivery::DeliveryState& state,
                                 std::vector<std::string>& notes, ReadyFolders& ready) {
  std::string fault;
  const auto once = [&](const char* name, auto prepareIt) {
    if (!fault.empty() || ready.contains(name)) return;
    fault = prepareIt();
    if (fault.empty()) ready.insert(name);
  };
  const auto folder = [&](const char* key, MessageKind kind) {
    once(key, [&] { return prepare(key, kind, settings, state, notes); });
  };
  once("spool", [&] { return prepareSpool(state, notes); });
  if (uses(policy, KaviAction::Quarantine)) folder(kQuarantineKey, MessageKind::Quarantined);
  if (uses(policy, KaviAction::Archive)) folder(kArchiveKey, MessageKind::Archived);
  return fault;
}

std::string prepareFilingFolders(const policy::Snapshot& policy, Kavi::GlobalSetting& settings,
                                 host::delivery::DeliveryState& state,
                                 std::vector<std::string>& notes) {
  ReadyFolders none;
  return prepareFilingFolders(policy, settings, state, notes, none);
}

void checkStateFolder(const std::string& folder, std::vector<std::string>& faults) {
  checkFolder(folder, "state_folder in section delivery", faults);
}

void checkFilingFolders(const policy::Snapshot& policy, Kavi::GlobalSetting& settings,
                        std::vector<std::string>& faults) {
  if (uses(policy, KaviAction::Quarantine)) checkSetFolder(kQuarantineKey, settings, faults);
  if (uses(policy, KaviAction::Archive)) checkSetFolder(kArchiveKey, settings, faults);
}

}  // namespace gateway::engine
