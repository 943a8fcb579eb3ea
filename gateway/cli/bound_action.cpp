#include "gateway/cli/bound_action.h"

#include "gateway/cli/object_target.h"
#include "gateway/cli/startup.h"
#include "gateway/cli/table.h"
#include "gateway/policy/suggest.h"

namespace gateway::cli {

using host::store::ActionRecord;
using host::store::RuleRecord;

bool BoundAction::build(const RuleRecord& rule, std::size_t place) {
  const ActionRecord& record = rule.actions[place];
  const std::string called =
      ruleText(rule) + ": action " + std::to_string(place + 1) + ", " + actionWord(record) + ", ";
  spec_ = policy::findAction(record.type);
  if (!usesObjects(record)) {
    complain(called + "uses no named objects (kavi rule bindings lists those that do)");
    return false;
  }
  owner_ = spec_->build(record.setting);
  action_ = dynamic_cast<KaviActionN*>(owner_.get());
  if (action_ == nullptr) {
    complain(called + "refuses its setting '" + shortened(record.setting, 60) +
             "' (write the rule anew with kavi policy apply)");
  }
  return action_ != nullptr;
}

NameObjectAccess BoundAction::access() const {
  return NameObjectAccess(static_cast<KaviNamedObj::NaObjType>(spec_->objectType));
}

OperationResult BoundAction::bindings(std::vector<unsigned int>& ids) {
  return resultOf(access().getBindings(*action_, ids));
}

OperationResult BoundAction::bind(const std::vector<unsigned int>& ids) {
  return resultOf(access().bind(*action_, ids));
}

bool usesObjects(const ActionRecord& action) {
  const policy::ActionSpec* spec = policy::findAction(action.type);
  return spec != nullptr && spec->objectType != 0;
}

std::string actionWord(const ActionRecord& action) {
  const policy::ActionSpec* spec = policy::findAction(action.type);
  return spec != nullptr ? std::string(spec->name) : "type " + std::to_string(action.type);
}

std::string ruleText(const RuleRecord& rule) {
  return "rule " + std::to_string(rule.id) + " " + nameText(rule.name);
}

std::size_t findAction(const RuleRecord& rule, const std::string& word) {
  const std::size_t count = rule.actions.size();
  if (const auto place = parseId(word); place && *place >= 1 && *place <= count) return *place - 1;
  std::size_t found = count;
  std::string places;
  std::vector<std::string> words;
  for (std::size_t i = 0; i < count; ++i) {
    words.push_back(actionWord(rule.actions[i]));
    if (words.back() != word) continue;
    places += (places.empty() ? "" : ", ") + std::to_string(i + 1);
    if (found == count) found = i;
  }
  if (found == count) {
    complain(ruleText(rule) + " has no action " + policy::inQuotes(word) + " " +
             (count == 0 ? "(it has none at all)"
                         : policy::remedyFor(word, {words.begin(), words.end()})));
  } else if (places.find(',') != std::string::npos) {
    complain(ruleText(rule) + " has several actions '" + word +
             "' (write the place of one: " + places + ")");
    found = count;
  }
  return found;
}

}  // namespace gateway::cli
