// Looks for what contradicts itself in the tables. Constraints hold while the database is sound:
// this is for files that were restored from pieces, written by hand, or lost a sector.
#include "host/core/text_escape.h"
#include "host/store/object_columns.h"
#include "host/store/sql_store.h"
#include "host/store/sql_support.h"

namespace host::store {

namespace {

/// One thing that must not be. The statement gives a row for each place: an id, and a second number
/// where the sentence has one.
struct Rule {
  const char* statement;
  const char* before;  ///< the first number
  const char* between;
  const char* after;  ///< the second number; null when there is none
};

#define KAVI_RANGE "NOT BETWEEN 1 AND 4294967295"
#define KAVI_MOST " LIMIT 100"

constexpr Rule kRules[] = {
    {"SELECT count(*) FROM policy_state HAVING count(*) <> 1", "the policy has ",
     " rows that count its changes", nullptr},
    {"SELECT id FROM named_object WHERE id " KAVI_RANGE
     " OR id > (SELECT max(last_object) FROM policy_state) ORDER BY id" KAVI_MOST,
     "object ", " has an id that was never given", nullptr},
    {"SELECT id FROM named_object WHERE owner NOT BETWEEN 0 AND 4294967295 OR type NOT BETWEEN 0 "
     "AND 4294967295 ORDER BY id" KAVI_MOST,
     "object ", " has an owner or a type that is no number of ours", nullptr},
    {"SELECT min(id), max(id) FROM named_object GROUP BY owner, type, name HAVING count(*) > 1 "
     "ORDER BY min(id)" KAVI_MOST,
     "object ", " has the name of object ", ""},
    {"SELECT id FROM rule WHERE id " KAVI_RANGE
     " OR position NOT BETWEEN 0 AND 4294967295 ORDER BY id" KAVI_MOST,
     "rule ", " has an id or a place that is no number of ours", nullptr},
    {"SELECT min(id), max(id) FROM rule GROUP BY position HAVING count(*) > 1 "
     "ORDER BY min(id)" KAVI_MOST,
     "rule ", " stands at the place of rule ", ""},
    {"SELECT DISTINCT rule FROM rule_action WHERE rule NOT IN (SELECT id FROM rule) "
     "ORDER BY rule" KAVI_MOST,
     "rule ", " has actions but is not there", nullptr},
    {"SELECT rule FROM rule_action GROUP BY rule HAVING min(position) <> 1 OR max(position) <> "
     "count(*) ORDER BY rule" KAVI_MOST,
     "rule ", " has actions out of their places", nullptr},
    {"SELECT rule, action FROM rule_object WHERE NOT EXISTS (SELECT 1 FROM rule_action WHERE "
     "rule_action.rule = rule_object.rule AND rule_action.position = action) "
     "ORDER BY rule, action" KAVI_MOST,
     "rule ", " refers to objects in its action ", ", which is not there"},
    {"SELECT rule, object FROM rule_object WHERE object NOT IN (SELECT id FROM named_object) "
     "ORDER BY rule, object" KAVI_MOST,
     "rule ", " refers to object ", ", which is not there"},
    {"SELECT id FROM policy_audit WHERE revision > (SELECT max(revision) FROM policy_state) "
     "ORDER BY id" KAVI_MOST,
     "the change in row ", " of the list has not happened yet", nullptr},
};

#undef KAVI_MOST
#undef KAVI_RANGE

void findContradictions(Connection& connection, std::vector<std::string>& faults) {
  for (const Rule& rule : kRules) {
    Query query(connection, rule.statement);
    while (query.next()) {
      std::string fault = rule.before + std::to_string(query.number(0)) + rule.between;
      if (rule.after != nullptr) fault += std::to_string(query.number(1)) + rule.after;
      faults.push_back(std::move(fault));
    }
  }
}

}  // namespace

StoreStatus SqlStore::check(std::vector<std::string>& faults) {
  std::vector<std::string> found;
  StoreStatus status = run("checking the store", Access::Snapshot, [&](Connection& connection) {
    connection.findDamage(found);
    try {
      findContradictions(connection, found);
      if (found.empty()) requireReadable(connection);
    } catch (const StoreFailure& failure) {
      // Damage below the tables ends the reading of them, too.
      if (found.empty() || failure.error() != StoreError::Damaged) throw;
    }
  });
  if (status.ok()) faults.swap(found);
  return status;
}

}  // namespace host::store
