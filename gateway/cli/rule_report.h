// What `kavi rule` says about rules and the objects that they use.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "gateway/cli/operation_result.h"
#include "gateway/cli/table.h"
#include "host/store/policy_store.h"

namespace gateway::cli {

/// The object of that id; null when there is none.
const host::store::ObjectRecord* objectOf(const host::store::PolicyRecord& policy, unsigned int id);

/// "stamp 'legal' (1), stamp 'short' (2)".
std::string objectsText(const host::store::PolicyRecord& policy,
                        const std::vector<unsigned int>& ids);
nlohmann::ordered_json objectsJson(const host::store::PolicyRecord& policy,
                                   const std::vector<unsigned int>& ids);

/// The rules as a table, or a sentence when there are none.
std::string ruleListText(const std::vector<host::store::RuleRecord>& rules);
/// For programs: an array of all that is known of each rule.
nlohmann::ordered_json ruleListJson(const host::store::PolicyRecord& policy);

/// A rule as an entry of a policy, with its settings strings below.
std::string ruleShowText(const host::store::PolicyRecord& policy,
                         const host::store::RuleRecord& rule);
nlohmann::ordered_json ruleJson(const host::store::PolicyRecord& policy,
                                const host::store::RuleRecord& rule);

/// What the actions of a rule are bound to.
class BindingsReport {
 public:
  /// \param place  of the action in its rule, from 0
  void add(const host::store::PolicyRecord& policy, std::size_t place,
           const host::store::ActionRecord& action, const OperationResult& result,
           const std::vector<unsigned int>& ids);
  void print(const host::store::RuleRecord& rule, bool asJson) const;

 private:
  Table table_{{"PLACE", "ACTION", "RESULT", "OBJECTS"}};
  nlohmann::ordered_json list_ = nlohmann::ordered_json::array();
};

}  // namespace gateway::cli
