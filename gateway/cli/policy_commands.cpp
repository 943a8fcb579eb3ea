#include "gateway/cli/policy_commands.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "gateway/cli/attempts.h"
#include "gateway/cli/json_output.h"
#include "gateway/cli/policy_report.h"
#include "gateway/cli/replaced_file.h"
#include "gateway/cli/standard_streams.h"
#include "gateway/cli/startup.h"
#include "gateway/policy/lint.h"
#include "gateway/policy/loader.h"
#include "gateway/policy/policy_export.h"
#include "gateway/policy/policy_records.h"
#include "gateway/policy/snapshot.h"
#include "host/core/text_escape.h"

namespace gateway::cli {
namespace {

using host::core::printable;
using host::store::PolicyRecord;
using host::store::StoreError;
using host::store::StoreStatus;
using nlohmann::ordered_json;
using policy::Diagnostic;

ordered_json jsonOf(const Diagnostic& diagnostic) {
  ordered_json json = {
      {"severity", diagnostic.severity == Diagnostic::Severity::Error ? "error" : "warning"}};
  if (diagnostic.line > 0) json["line"] = diagnostic.line;
  if (!diagnostic.rule.empty()) json["rule"] = diagnostic.rule;
  json["message"] = diagnostic.message;
  return json;
}

void printFindings(const policy::Diagnostics& diagnostics, std::size_t rules, bool usable) {
  for (const Diagnostic& diagnostic : diagnostics.all()) printLine(diagnostics.text(diagnostic));
  std::string text = diagnostics.source() + ": ";
  if (usable) {
    text += "can be used, " + counted(rules, "rule", "rules");
  } else {
    text += counted(diagnostics.errorCount(), "error", "errors");
  }
  if (diagnostics.warningCount() != 0) {
    text += ", " + counted(diagnostics.warningCount(), "warning", "warnings");
  }
  printLine(text);
}

/// The policy file, when it is free of errors.
std::optional<policy::LoadedPolicy> loadUsable(const std::string& path,
                                               policy::Diagnostics& diagnostics) {
  auto loaded = policy::loadPolicyFile(path, diagnostics);
  const bool usable =
      loaded && policy::Snapshot::build(loaded->rows, diagnostics, loaded->lines) != nullptr;
  return usable ? std::move(loaded) : std::nullopt;
}

/// One application of a policy file to a store.
class Application {
 public:
  Application(const PolicyApplyOptions& options, host::store::Database& store)
      : options_(options), store_(store), style_(options.colour, STDOUT_FILENO) {}

  int run(const policy::PolicyRows& rows) {
    for (Attempts attempts; attempts.next();) {
      PolicyRecord present;
      if (const StoreStatus status = store_.readPolicy(present); !status.ok()) {
        return fail(status, "nothing is changed");
      }
      PolicyRecord next;
      policy::Diagnostics diagnostics(options_.file);
      if (!policy::recordOf(rows, present, next, diagnostics)) {
        complain(diagnostics);
        return ExitFailed;
      }
      const policy::PolicyDiff diff(present, next);
      if (!show(diff)) return ExitFailed;
      if (options_.dryRun || diff.changes().empty()) {
        return conclude(diff, present.revision, false);
      }
      std::int64_t revision = 0;
      const StoreStatus status =
          store_.replacePolicy(next, {actorName(), std::time(nullptr)}, revision);
      if (status.ok()) return conclude(diff, revision, true);
      if (status.error != StoreError::Conflict) {
        // A server that goes away may do so behind the change, or while it is made.
        return fail(status, status.isUncertain
                                ? "see with kavi policy diff whether anything is changed"
                                : "nothing is changed");
      }
      if (attempts.isFirst())
        remark("somebody has changed the store meanwhile: working it out anew");
    }
    complain("nothing applied: others keep changing the store (try again)");
    return ExitFailed;
  }

 private:
  static int fail(const StoreStatus& status, const char* then) {
    complain(printable(status.text) + "; " + then);
    return ExitFailed;
  }

  /// Nothing is changed that nobody could see coming. \return false after a complaint
  bool show(const policy::PolicyDiff& diff) {
    if (diff.changes().empty()) return true;
    if (options_.json ? begin() : showText(textReport(diff, style_))) return true;
    complain(std::string("the changes cannot be shown (") + std::strerror(errno) +
             "): nothing is changed");
    return false;
  }

  bool showText(const std::string& text) {
    // What was shown before and still holds is not shown again.
    if (text == shown_) return true;
    shown_ = text;
    printText(text);
    return flushOutput();
  }

  /// The changes stand in the rest of the report: what they are may differ from attempt to attempt.
  bool begin() {
    if (isBegun_) return true;
    isBegun_ = true;
    return beginJson(subject());
  }

  int conclude(const policy::PolicyDiff& diff, std::int64_t revision, bool applied) const {
    const std::string called = "store " + printable(store_.location());
    const std::string at = "revision " + std::to_string(revision);
    const std::string done = called + ": applied, now at " + at;
    if (applied) noteChange(done);
    if (options_.json) {
      endJson(jsonOf(diff, revision, applied));
    } else if (applied) {
      printLine(done);
    } else if (diff.changes().empty()) {
      printLine(called + ": nothing differs (" + at + ")");
    } else {
      printLine(called + ": nothing is changed (" + at + ")");
    }
    return ExitDone;
  }

  ordered_json subject() const { return {{"policy", options_.file}, {"store", store_.location()}}; }

  /// The report, or where it is begun the rest of it.
  ordered_json jsonOf(const policy::PolicyDiff& diff, std::int64_t revision, bool applied) const {
    using Kind = policy::PolicyChange::Kind;
    ordered_json json = isBegun_ ? ordered_json::object() : subject();
    json["changes"] = jsonReport(diff);
    json["added"] = diff.count(Kind::Added);
    json["removed"] = diff.count(Kind::Removed);
    json["changed"] = diff.count(Kind::Changed);
    json["applied"] = applied;
    json["revision"] = revision;
    return json;
  }

  const PolicyApplyOptions& options_;
  host::store::Database& store_;
  Style style_;
  std::string shown_;
  bool isBegun_ = false;  ///< the report
};

}  // namespace

int policyCheckCommand(const PolicyCheckOptions& options) {
  const std::unique_ptr<Startup> startup = Startup::begin(options.config);
  if (startup == nullptr) return ExitUsage;
  if (!namesPolicy(options.policy, startup->settings())) {
    complain("no policy is named (name its file, or write --store sqlite:PATH)");
    return ExitUsage;
  }
  std::optional<policy::Diagnostics> diagnostics;
  policy::LoadedPolicy checked;
  bool usable = false;
  if (!options.policy.file.empty()) {
    diagnostics.emplace(options.policy.file);
    auto loaded = loadUsable(options.policy.file, *diagnostics);
    usable = loaded.has_value();
    if (loaded) checked = std::move(*loaded);
  } else {
    std::shared_ptr<host::store::Database> store;
    const int status = openStore({options.policy.store, options.config}, store);
    if (status != ExitDone) return status;
    diagnostics.emplace("store " + printable(store->location()));
    policy::StoredPolicy stored = policy::loadFromStore(*store, *diagnostics);
    usable = stored.snapshot != nullptr;
    checked.rows = std::move(stored.rows);
  }
  if (usable) policy::lintPolicy(checked.rows, checked.lines, *diagnostics);
  const std::size_t rules = checked.rows.rules.size();
  if (options.json) {
    ordered_json findings = ordered_json::array();
    for (const Diagnostic& diagnostic : diagnostics->all()) findings.push_back(jsonOf(diagnostic));
    printJson({{"policy", diagnostics->source()},
               {"usable", usable},
               {"rules", rules},
               {"errors", diagnostics->errorCount()},
               {"warnings", diagnostics->warningCount()},
               {"findings", std::move(findings)}});
  } else {
    printFindings(*diagnostics, rules, usable);
  }
  return usable ? ExitDone : ExitUsage;
}

int policyExportCommand(const StoreOptions& options, const std::string& file) {
  const std::unique_ptr<Startup> startup = Startup::begin(options.config);
  if (startup == nullptr) return ExitUsage;
  std::shared_ptr<host::store::Database> store;
  if (const int status = openStore(options, store); status != ExitDone) return status;
  PolicyRecord record;
  if (const StoreStatus status = store->readPolicy(record); !status.ok()) {
    complain(printable(status.text));
    return ExitFailed;
  }
  policy::Diagnostics diagnostics("store " + printable(store->location()));
  const std::optional<std::string> text = policy::exportPolicy(record, diagnostics);
  complain(diagnostics);
  if (!text) return ExitFailed;
  if (file.empty() || file == "-") {
    printText(*text);
    return ExitDone;
  }
  if (const std::string fault = replaceFile(file, *text); !fault.empty()) {
    complain(printable(file) + ": " + fault);
    return ExitFailed;
  }
  return ExitDone;
}

int policyApplyCommand(const PolicyApplyOptions& options) {
  const std::unique_ptr<Startup> startup = Startup::begin(options.store.config);
  if (startup == nullptr) return ExitUsage;
  policy::Diagnostics diagnostics(options.file);
  const auto loaded = loadUsable(options.file, diagnostics);
  if (loaded) policy::lintPolicy(loaded->rows, loaded->lines, diagnostics);
  complain(diagnostics);
  if (!loaded) return ExitUsage;
  std::shared_ptr<host::store::Database> store;
  if (const int status = openStore(options.store, store); status != ExitDone) return status;
  return Application(options, *store).run(loaded->rows);
}

}  // namespace gateway::cli
