#include "gateway/cli/store_commands.h"

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "gateway/cli/json_output.h"
#include "gateway/cli/standard_streams.h"
#include "gateway/cli/startup.h"
#include "gateway/cli/store_check.h"
#include "gateway/cli/submission.h"
#include "gateway/cli/table.h"
#include "gateway/cli/terminal.h"
#include "gateway/policy/named_objects.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

using host::core::printable;
using host::store::AuditRecord;
using host::store::Database;
using host::store::PolicyRecord;
using host::store::StoreForm;
using host::store::StoreStatus;
using nlohmann::ordered_json;

int failed(const StoreStatus& status) {
  complain(status.text.empty() ? host::store::storeErrorText(status.error) : status.text);
  return ExitFailed;
}

std::string called(const Database& store) { return "store " + printable(store.location()) + ": "; }

/// The store that the options name, to be made or brought forward, and its form. \return the exit
/// status
int lookAt(const StoreOptions& options, std::shared_ptr<Database>& store, StoreForm& form) {
  host::core::IniSettings settings;
  if (!loadSettings(options.config, settings)) return ExitUsage;
  store = findStore(options.location, settings, host::store::Upkeep::MakeAndMigrate);
  if (store == nullptr) return ExitUsage;
  const StoreStatus status = store->readForm(form);
  return status.ok() ? static_cast<int>(ExitDone) : failed(status);
}

/// Brings the store to this program's form and says what that was.
int prepare(Database& store, const StoreForm& before, const std::string& done, bool json) {
  if (before.version != before.newest) {
    if (const StoreStatus status = store.prepare(); !status.ok()) return failed(status);
    noteChange(called(store) + done);
  }
  if (json) {
    printJson({{"store", store.location()},
               {"version_before", before.version},
               {"version", before.newest}});
  } else {
    printLine(called(store) + done);
  }
  return ExitDone;
}

struct Findings {
  StoreForm form;
  PolicyRecord policy;
  std::vector<std::string> faults;
  bool wasRead = false;  ///< whether the policy could be read

  std::size_t actionCount() const {
    std::size_t count = 0;
    for (const auto& rule : policy.rules) count += rule.actions.size();
    return count;
  }
  std::map<std::string, std::size_t> objectCounts() const {
    std::map<std::string, std::size_t> counts;
    for (const auto& object : policy.objects) {
      const policy::ObjectKind* kind = policy::findObjectKind(object.type);
      ++counts[kind != nullptr ? std::string(kind->key) : "of unknown types"];
    }
    return counts;
  }
};

void find(Database& store, Findings& findings) {
  const StoreStatus checked = store.check(findings.faults);
  if (!checked.ok()) findings.faults.push_back(checked.text);
  if (const StoreStatus status = store.readPolicy(findings.policy); !status.ok()) {
    // What ended the check ends this, too: it is one fault.
    if (checked.ok()) findings.faults.push_back(status.text);
    return;
  }
  findings.wasRead = true;
  for (std::string& fault : policyFaults(findings.policy)) {
    findings.faults.push_back(std::move(fault));
  }
}

void printFindings(const Database& store, const Findings& findings) {
  for (const std::string& fault : findings.faults) printLine(fault);
  std::string text = called(store) + "version " + std::to_string(findings.form.version);
  if (findings.wasRead) {
    text += ", revision " + std::to_string(findings.policy.revision) + ", " +
            counted(findings.policy.objects.size(), "named object", "named objects") + ", " +
            counted(findings.policy.rules.size(), "rule", "rules") + " with " +
            counted(findings.actionCount(), "action", "actions");
  }
  printLine(
      text + "; " +
      (findings.faults.empty() ? "sound" : counted(findings.faults.size(), "fault", "faults")));
}

ordered_json toJson(const Database& store, const Findings& findings) {
  ordered_json json = {{"store", store.location()},
                       {"version", findings.form.version},
                       {"sound", findings.faults.empty()}};
  if (findings.wasRead) {
    json["revision"] = findings.policy.revision;
    json["objects"] = findings.objectCounts();
    json["rules"] = findings.policy.rules.size();
    json["actions"] = findings.actionCount();
  }
  json["faults"] = findings.faults;
  return json;
}

}  // namespace

int storeInitCommand(const StoreOptions& options, bool json) {
  std::shared_ptr<Database> store;
  StoreForm form;
  if (const int status = lookAt(options, store, form); status != ExitDone) return status;
  const std::string version = "version " + std::to_string(form.version);
  if (form.version != 0 && form.version != form.newest) {
    complain(called(*store) + "it is there already, with " + version +
             " (kavi store migrate brings it to version " + std::to_string(form.newest) + ")");
    return ExitFailed;
  }
  const std::string done = form.version == 0 ? "made, version " + std::to_string(form.newest)
                                             : "it is there already, " + version;
  return prepare(*store, form, done, json);
}

int storeMigrateCommand(const StoreOptions& options, bool json) {
  std::shared_ptr<Database> store;
  StoreForm form;
  if (const int status = lookAt(options, store, form); status != ExitDone) return status;
  if (form.version == 0) {
    complain(called(*store) + "there is none (kavi store init makes it)");
    return ExitFailed;
  }
  const std::string version = "version " + std::to_string(form.version);
  const std::string done = form.version == form.newest
                               ? "it has " + version + ", which is this program's"
                               : "brought from " + version + " to " + std::to_string(form.newest);
  return prepare(*store, form, done, json);
}

int storeCheckCommand(const StoreOptions& options, bool json) {
  const std::unique_ptr<Startup> startup = Startup::begin(options.config);
  if (startup == nullptr) return ExitUsage;
  std::shared_ptr<Database> store;
  if (const int status = openStore(options, store); status != ExitDone) return status;
  Findings findings;
  if (const StoreStatus status = store->readForm(findings.form); !status.ok()) {
    return failed(status);
  }
  find(*store, findings);
  if (json) {
    printJson(toJson(*store, findings));
  } else {
    printFindings(*store, findings);
  }
  return findings.faults.empty() ? ExitDone : ExitFailed;
}

int storeAuditCommand(const StoreOptions& options, const PageOptions& page, bool json) {
  std::shared_ptr<Database> store;
  if (const int status = openStore(options, store); status != ExitDone) return status;
  std::vector<AuditRecord> records;
  if (const StoreStatus status = store->listAudit(page.after, page.limit, records); !status.ok()) {
    return failed(status);
  }
  ordered_json list = ordered_json::array();
  Table table({"ROW", "WHEN", "WHO", "WHAT", "REVISION"});
  for (const AuditRecord& record : records) {
    if (json) {
      list.push_back({{"row", record.row},
                      {"at", record.at},
                      {"who", record.actor},
                      {"what", record.what},
                      {"revision", record.revision}});
    } else {
      table.add({std::to_string(record.row), timeText(record.at, -1), record.actor, record.what,
                 std::to_string(record.revision)});
    }
  }
  if (json) {
    printJson(list);
  } else if (records.empty()) {
    printLine(page.after == 0 ? "nothing has been changed yet" : "no changes behind that row");
  } else {
    printText(table.text());
    if (records.size() == page.limit) {
      printLine("there may be more: --after " + std::to_string(records.back().row));
    }
  }
  return ExitDone;
}

}  // namespace gateway::cli
