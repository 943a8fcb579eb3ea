// What `kavi object` says about named objects.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "gateway/cli/operation_result.h"
#include "host/store/object_store.h"

namespace gateway::cli {

/// "stamp 'legal' (7)".
std::string objectText(const host::store::ObjectRecord& object);

/// "rule 15 'executables', rule 16 'all'".
std::string referrersText(const std::vector<host::store::RuleName>& rules);

/// The objects as a table, or a sentence when there are none.
std::string objectListText(const std::vector<host::store::ObjectRecord>& objects);
/// For programs: an array.
nlohmann::ordered_json objectListJson(const std::vector<host::store::ObjectRecord>& objects);

/// The object as an entry of a policy, in YAML; of a type that no policy names, only its texts.
std::string objectEntryText(const host::store::ObjectRecord& object);

/// One object with its fields, its settings string and the rules that use it: several lines.
std::string objectShowText(const host::store::ObjectRecord& object,
                           const std::vector<host::store::RuleName>& rules);
nlohmann::ordered_json objectShowJson(const host::store::ObjectRecord& object,
                                      const std::vector<host::store::RuleName>& rules);

/// A result for programs; what succeeded or failed besides is added to it.
nlohmann::ordered_json toJson(const OperationResult& result);

}  // namespace gateway::cli
