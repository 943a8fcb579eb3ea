#include "gateway/cli/rule_commands.h"

#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>

#include "gateway/cli/attempts.h"
#include "gateway/cli/bound_action.h"
#include "gateway/cli/json_output.h"
#include "gateway/cli/object_report.h"
#include "gateway/cli/object_target.h"
#include "gateway/cli/rule_report.h"
#include "gateway/cli/standard_streams.h"
#include "gateway/cli/startup.h"
#include "gateway/cli/store_session.h"

namespace gateway::cli {
namespace {

using host::store::ActionRecord;
using host::store::ObjectRecord;
using host::store::PolicyRecord;
using host::store::RuleRecord;
using host::store::StoreError;
using host::store::StoreStatus;
using nlohmann::ordered_json;

void complainOfMissing(std::uint32_t rule) {
  complain("there is no rule " + std::to_string(rule) + " (kavi rule list shows what is there)");
}

/// A store with its policy, or a part of that, as it stands now.
struct PolicySession : StoreSession {
  PolicyRecord policy;

  /// Reads the whole policy. \return the exit status, after a complaint, as of all these
  int read() {
    const StoreStatus status = store->readPolicy(policy);
    if (!status.ok()) complain(status.text);
    return status.ok() ? ExitDone : ExitFailed;
  }

  /// Opens the store and reads a page of the rules.
  int openPage(const StoreOptions& options, const host::store::RulePage& page) {
    if (const int status = open(options); status != ExitDone) return status;
    return outcomeOf(store->listRules(page, policy), page.afterRule.value_or(0));
  }

  /// Opens the store and reads one rule.
  int openRule(const StoreOptions& options, std::uint32_t rule) {
    if (const int status = open(options); status != ExitDone) return status;
    return outcomeOf(store->findRule(rule, policy), rule);
  }

  /// Null after a complaint.
  RuleRecord* requireRule(std::uint32_t id) {
    for (RuleRecord& rule : policy.rules) {
      if (rule.id == id) return &rule;
    }
    complainOfMissing(id);
    return nullptr;
  }

 private:
  static int outcomeOf(const StoreStatus& status, std::uint32_t rule) {
    if (status.ok()) return ExitDone;
    if (status.error == StoreError::NotFound) {
      complainOfMissing(rule);
    } else {
      complain(status.text);
    }
    return ExitFailed;
  }
};

/// The objects that the arguments mean for an action. \return the exit status, after a complaint
int readObjects(const PolicyRecord& policy, const policy::ActionSpec& spec,
                const std::vector<std::string>& words, std::vector<unsigned int>& ids) {
  const std::string_view kind = policy::findObjectKind(spec.objectType)->word;
  if (words.size() > 1 && !spec.takesSeveral) {
    complain("action '" + std::string(spec.name) + "' uses one " + std::string(kind) +
             ", not several");
    return ExitUsage;
  }
  for (const std::string& word : words) {
    const auto id = parseId(word);
    const auto object = std::find_if(
        policy.objects.begin(), policy.objects.end(), [&](const ObjectRecord& candidate) {
          return candidate.owner == policy::kPolicyOwner && candidate.type == spec.objectType &&
                 candidate.name == word;
        });
    const ObjectRecord* numbered = id ? objectOf(policy, *id) : nullptr;
    const bool isNamed = object != policy.objects.end();
    if (isNamed && numbered != nullptr && numbered->id != object->id) {
      complain(nameText(word) + " is both the name of " + objectText(*object) + " and the id of " +
               objectText(*numbered) + " (write the first one's id, " + std::to_string(object->id) +
               ", or give it another name)");
      return ExitUsage;
    }
    if (id && !isNamed) {
      ids.push_back(*id);
      continue;
    }
    if (!isNamed) {
      complain("there is no " + std::string(kind) + " " + nameText(word) +
               " (kavi object list shows what is there)");
      return ExitFailed;
    }
    ids.push_back(object->id);
  }
  return ExitDone;
}

/// Why an action must not refer to \p ids: the operation itself does not look at new ones, and no
/// gateway could use the policy any more. Empty when it may.
std::string faultOf(const PolicyRecord& policy, const policy::ActionSpec& spec,
                    const std::vector<unsigned int>& ids) {
  const std::string kind(policy::findObjectKind(spec.objectType)->word);
  for (const unsigned int id : ids) {
    const ObjectRecord* object = objectOf(policy, id);
    if (object == nullptr) return "there is no object " + std::to_string(id);
    if (object->type != spec.objectType) return objectText(*object) + " is no " + kind;
  }
  return {};
}

/// What one attempt to bind has led to.
struct Binding {
  OperationResult result;
  std::string fault;      ///< why it was not written all the same
  bool again = false;     ///< somebody else changed the policy meanwhile
  std::string described;  ///< "rule 15 'x': action 2, stamp"
  std::int64_t revision = 0;
  std::vector<unsigned int> ids;
};

/// Binds and writes once. \return the exit status when there was nothing to try, after a complaint
int tryBinding(PolicySession& session, const RuleOptions& options,
               const std::vector<std::string>& words, Binding& binding) {
  RuleRecord* rule = session.requireRule(options.rule);
  if (rule == nullptr) return ExitFailed;
  const std::size_t place = findAction(*rule, options.action);
  BoundAction bound;
  if (place == rule->actions.size() || !bound.build(*rule, place)) return ExitUsage;
  binding = {};
  const int read = readObjects(session.policy, bound.spec(), words, binding.ids);
  if (read != ExitDone) return read;
  ActionRecord& action = rule->actions[place];
  binding.described =
      ruleText(*rule) + ": action " + std::to_string(place + 1) + ", " + actionWord(action);
  binding.result = bound.bind(binding.ids);
  if (!binding.result.ok()) return ExitDone;
  binding.fault = faultOf(session.policy, bound.spec(), binding.ids);
  if (!binding.fault.empty()) return ExitDone;
  action.setting = bound.setting();
  action.objects = binding.ids;
  const StoreStatus status = session.store->replacePolicy(
      session.policy, {actorName(), std::time(nullptr)}, binding.revision);
  binding.again = status.error == StoreError::Conflict;
  if (!status.ok()) binding.fault = status.text;
  return ExitDone;
}

int report(const PolicySession& session, const RuleOptions& options, const Binding& binding) {
  const bool written = binding.result.ok() && binding.fault.empty();
  const std::string done = binding.described + ", uses " +
                           objectsText(session.policy, binding.ids) + ", revision " +
                           std::to_string(binding.revision);
  if (written) noteChange(done);
  if (options.json) {
    ordered_json json = toJson(binding.result);
    json["written"] = written;
    if (!binding.fault.empty()) json["error"] = binding.fault;
    if (written) json["revision"] = binding.revision;
    json["objects"] = objectsJson(session.policy, binding.ids);
    printJson(json);
  } else if (written) {
    printLine(resultText(binding.result) + ": " + done);
  }
  if (!binding.result.ok()) complain(resultText(binding.result));
  if (!binding.fault.empty()) {
    complain(resultText(binding.result) + ", but not written: " + binding.fault);
  }
  return written ? ExitDone : ExitFailed;
}

}  // namespace

int ruleListCommand(const RuleOptions& options, const RulePage& page) {
  PolicySession session;
  // One more than wanted tells whether there are more.
  const std::size_t limit = page.limit ? *page.limit + 1 : SIZE_MAX;
  const int status = session.openPage(options.store, {page.after, limit});
  if (status != ExitDone) return status;
  std::vector<RuleRecord>& rules = session.policy.rules;
  const bool isCut = page.limit && rules.size() > *page.limit;
  if (isCut) rules.pop_back();
  if (options.json) {
    printJson(ruleListJson(session.policy));
    return ExitDone;
  }
  printText(ruleListText(rules));
  if (isCut) printLine("there are more: --after " + std::to_string(rules.back().id));
  return ExitDone;
}

int ruleShowCommand(const RuleOptions& options) {
  PolicySession session;
  const int status = session.openRule(options.store, options.rule);
  if (status != ExitDone) return status;
  const RuleRecord& rule = session.policy.rules.front();
  if (options.json) {
    printJson(ruleJson(session.policy, rule));
  } else {
    printText(ruleShowText(session.policy, rule));
  }
  return ExitDone;
}

int ruleBindingsCommand(const RuleOptions& options) {
  PolicySession session;
  int status = session.openRule(options.store, options.rule);
  if (status != ExitDone) return status;
  const RuleRecord* rule = &session.policy.rules.front();
  std::vector<std::size_t> places;
  if (options.action.empty()) {
    for (std::size_t i = 0; i < rule->actions.size(); ++i) {
      if (usesObjects(rule->actions[i])) places.push_back(i);
    }
  } else if (const std::size_t place = findAction(*rule, options.action);
             place != rule->actions.size()) {
    places.push_back(place);
  } else {
    return ExitUsage;
  }
  BindingsReport found;
  for (const std::size_t place : places) {
    BoundAction bound;
    std::vector<unsigned int> ids;
    if (!bound.build(*rule, place)) return ExitUsage;
    const OperationResult result = bound.bindings(ids);
    if (!result.ok()) status = ExitFailed;
    found.add(session.policy, place, rule->actions[place], result, ids);
  }
  found.print(*rule, options.json);
  return status;
}

int ruleBindCommand(const RuleOptions& options, const std::vector<std::string>& objects) {
  PolicySession session;
  if (const int status = session.open(options.store); status != ExitDone) return status;
  Binding binding;
  for (Attempts attempts; attempts.next();) {
    if (const int status = session.read(); status != ExitDone) return status;
    if (const int status = tryBinding(session, options, objects, binding); status != ExitDone) {
      return status;
    }
    if (!binding.again) break;
  }
  if (binding.again) binding.fault += " (others keep changing the store: try again)";
  return report(session, options, binding);
}

}  // namespace gateway::cli
