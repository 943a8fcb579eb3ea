// A policy ready to run.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "gateway/policy/action_registry.h"
#include "gateway/policy/diagnostics.h"
#include "gateway/policy/matcher.h"
#include "gateway/policy/rows.h"

namespace gateway::policy {

/// Rules compiled once, in the order in which they run; disabled ones are left out. Immutable:
/// any number of threads read one snapshot while another takes its place.
class Snapshot {
 public:
  struct Action {
    const ActionSpec* spec = nullptr;     ///< never null
    std::string setting;                  ///< accepted by the action's `construct`
    std::string value{};                  ///< as in a policy: areas by name
    std::vector<unsigned int> objects{};  ///< ids of the named objects that it refers to
  };
  /// A named object; each message builds a record of its own from the settings string.
  struct Object {
    unsigned int type = 0;
    std::string name;
    std::string setting;  ///< accepted by the record's `construct`
  };
  struct Rule {
    unsigned int id = 0;
    std::string name;
    Matcher matcher;
    std::vector<Action> actions;
    OnFailure onFailure = OnFailure::TempFail;
    RuleVerdict verdict{};  ///< its text is fit to be told (gateway/policy/rule_options.h)
  };

  /// Compiles \p rows.
  /// \param lines  where the rows came from, for messages
  /// \return null when a row cannot be used; every fault is in \p diagnostics.
  static std::shared_ptr<const Snapshot> build(const PolicyRows& rows, Diagnostics& diagnostics,
                                               const SourceLines& lines = {});

  /// Takes over rules that are compiled already.
  static std::shared_ptr<const Snapshot> of(std::vector<Rule> rules);

  const std::vector<Rule>& rules() const { return rules_; }
  /// Null when there is none of that id.
  const Object* findObject(unsigned int id) const;

 private:
  Snapshot() = default;
  bool addObject(const NamedObjectRow& row, int line, Diagnostics& diagnostics);

  std::vector<Rule> rules_;
  std::unordered_map<unsigned int, Object> objects_;
};

}  // namespace gateway::policy
