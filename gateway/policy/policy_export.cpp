#include "gateway/policy/policy_export.h"

#include <algorithm>

#include "gateway/policy/action_registry.h"
#include "gateway/policy/loader.h"
#include "gateway/policy/named_objects.h"
#include "gateway/policy/policy_entries.h"
#include "gateway/policy/policy_records.h"
#include "gateway/policy/snapshot.h"
#include "gateway/policy/suggest.h"
#include "gateway/policy/yaml_writer.h"

namespace gateway::policy {
namespace {

using host::store::ObjectRecord;
using host::store::PolicyRecord;

/// Leaves the objects that a file can speak of.
PolicyRows nameableRows(const PolicyRecord& record) {
  PolicyRecord nameable = record;
  std::erase_if(nameable.objects,
                [](const ObjectRecord& object) { return object.owner != kPolicyOwner; });
  return rowsOf(nameable);
}

/// Says which actions cannot be written with names.
void findNameless(const PolicyRows& rows, Diagnostics& diagnostics) {
  const ObjectNames names(rows.objects);
  for (const RuleRow& rule : rows.rules) {
    for (const ActionRow& action : rule.actions) {
      const ActionSpec* spec = findAction(action.type);
      if (spec == nullptr || spec->objectType == 0) continue;
      Document document;
      if (actionEntry(action, names, document).find(kSettingKey) == nullptr) continue;
      diagnostics.error(0, "rule " + std::to_string(rule.id),
                        "action '" + std::string(spec->name) + "' refers to objects by " +
                            inQuotes(action.setting) +
                            ", which no names give (let it refer to objects of owner " +
                            std::to_string(kPolicyOwner) + ": kavi rule bind)");
    }
  }
}

/// Whether a store with \p record in it stays the same under \p text.
bool staysTheSame(const std::string& text, const PolicyRecord& record, Diagnostics& diagnostics) {
  const auto loaded = loadPolicy(text, diagnostics);
  PolicyRecord again;
  return loaded && recordOf(loaded->rows, record, again, diagnostics) &&
         again.objects == record.objects && again.rules == record.rules;
}

}  // namespace

std::optional<std::string> exportPolicy(const PolicyRecord& record, Diagnostics& diagnostics) {
  if (Snapshot::build(rowsOf(record), diagnostics) == nullptr) return std::nullopt;
  const PolicyRows rows = nameableRows(record);
  findNameless(rows, diagnostics);
  if (diagnostics.hasErrors()) return std::nullopt;
  Document document;
  std::string text = writeYaml(policyTree(rows, document));
  if (!staysTheSame(text, record, diagnostics)) {
    diagnostics.error(0, "", "no policy file can say what the store holds");
    return std::nullopt;
  }
  return text;
}

}  // namespace gateway::policy
