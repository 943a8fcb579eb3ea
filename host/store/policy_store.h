// The rules, and what changed in them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/store/object_store.h"
#include "host/store/rule_options.h"
#include "host/store/store_status.h"
#include "library/platform/api.h"

namespace host::store {

/// One action of a rule.
struct ActionRecord {
  int type = 0;                        ///< a KaviAction::ActionType
  std::string setting;                 ///< what the action's `construct` reads
  std::vector<std::uint32_t> objects;  ///< ids of the named objects that it refers to

  bool operator==(const ActionRecord&) const = default;
};

/// One rule. The store knows nothing of conditions: they are texts to it.
struct RuleRecord {
  std::uint32_t id = 0;  ///< above 0; given by whoever writes the policy
  std::string name;
  std::uint32_t order = 0;  ///< rules run in ascending order; no two have the same
  bool enabled = true;
  std::string condition;
  std::vector<ActionRecord> actions;
  OnFailure onFailure = OnFailure::TempFail;
  RuleVerdict verdict{};

  bool operator==(const RuleRecord&) const = default;
};

/// A whole policy, as it stood at one moment.
struct PolicyRecord {
  std::int64_t revision = 0;          ///< how many changes there were before
  std::uint32_t lastObjectId = 0;     ///< the highest id that an object ever had
  std::vector<ObjectRecord> objects;  ///< with contents, by id
  std::vector<RuleRecord> rules;      ///< by order
};

/// A part of the rules, in the order in which they run.
struct RulePage {
  std::optional<std::uint32_t> afterRule;  ///< the last rule of the page before; nothing: the begin
  std::size_t limit = 100;
};

/// One change, as somebody made it.
struct AuditRecord {
  std::int64_t row = 0;  ///< ascending
  std::int64_t revision = 0;
  std::int64_t at = 0;  ///< seconds since 1970
  std::string actor;
  std::string what;  ///< "add stamp 'legal' (7)"

  bool operator==(const AuditRecord&) const = default;
};

/// Durable and safe as MessageIndex. A reader sees one whole policy, never one half changed.
class KAVI_API PolicyStore : public ObjectStore {
 public:
  virtual StoreStatus readPolicy(PolicyRecord& policy) = 0;

  /// Reads a page of the rules. It costs what the page holds, however large the policy is.
  /// \param part  receives a policy of these rules alone: its objects are those that they refer
  ///   to, without their contents
  /// \return NotFound when there is no rule \p page goes on behind
  virtual StoreStatus listRules(const RulePage& page, PolicyRecord& part) = 0;

  /// The same for the one rule of that id. NotFound when there is none.
  virtual StoreStatus findRule(std::uint32_t id, PolicyRecord& part) = 0;

  /// Makes \p policy the policy, in one transaction: what it does not name is removed, what is
  /// there already and the same is left alone. Objects that are new have ids above lastObjectId,
  /// which nobody else can have given meanwhile; those below must be there. Of its
  /// objects' flags builtIn, inUse and times only builtIn of new ones is read.
  /// \param policy  as it was read, changed
  /// \param revision  receives the new one; the old one when nothing differs
  /// \return Conflict when somebody changed anything since it was read; InvalidArgument when ids,
  ///   orders or references do not fit together; NameTaken
  virtual StoreStatus replacePolicy(const PolicyRecord& policy, const ChangeNote& note,
                                    std::int64_t& revision) = 0;

  /// How many changes there were: cheap enough to be asked before every message.
  virtual StoreStatus readRevision(std::int64_t& revision) = 0;

  /// The changes behind row \p afterRow, the oldest first.
  virtual StoreStatus listAudit(std::int64_t afterRow, std::size_t limit,
                                std::vector<AuditRecord>& records) = 0;

  /// Reads everything and looks for what contradicts itself.
  /// \param faults  receives a sentence for each place, no more than some hundreds; empty when the
  ///   store is sound
  virtual StoreStatus check(std::vector<std::string>& faults) = 0;
};

}  // namespace host::store
