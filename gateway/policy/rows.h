// A policy as the store keeps it: plain rows, no pointers, nothing compiled.
#pragma once

#include <string>
#include <vector>

#include "host/store/rule_options.h"

namespace gateway::policy {

using host::store::OnFailure;
using host::store::RuleVerdict;

/// One action of a rule: the type code and the settings string that its class's `construct` reads.
struct ActionRow {
  int type = 0;
  std::string setting;
};

struct RuleRow {
  unsigned int id = 0;  ///< positive, unique, never used again
  std::string name;
  unsigned int order = 0;  ///< rules run in ascending order
  bool enabled = true;
  std::string condition;  ///< canonical text (gateway/policy/condition.h)
  std::vector<ActionRow> actions;
  OnFailure onFailure = OnFailure::TempFail;
  RuleVerdict verdict{};
};

/// A named object: actions refer to it by id, the record is built from the settings string.
struct NamedObjectRow {
  unsigned int id = 0;    ///< positive, unique among all kinds
  unsigned int type = 0;  ///< record type of KaviNamedObj
  std::string name;       ///< unique within its kind
  std::string setting;
};

struct PolicyRows {
  std::vector<RuleRow> rules;
  std::vector<NamedObjectRow> objects;
};

/// Where the rows of a policy file came from, for messages. Rows from elsewhere have none.
struct SourceLines {
  struct Rule {
    int line = 0;
    std::vector<int> actions;
  };
  std::vector<Rule> rules;   ///< as PolicyRows::rules
  std::vector<int> objects;  ///< as PolicyRows::objects

  int ofRule(std::size_t rule) const { return rule < rules.size() ? rules[rule].line : 0; }
  int ofAction(std::size_t rule, std::size_t action) const {
    if (rule >= rules.size() || action >= rules[rule].actions.size()) return 0;
    return rules[rule].actions[action];
  }
  int ofObject(std::size_t object) const { return object < objects.size() ? objects[object] : 0; }
};

}  // namespace gateway::policy
