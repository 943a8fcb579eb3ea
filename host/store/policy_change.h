// One change of the policy's tables, under one revision.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>

#include "host/store/connection.h"
#include "host/store/policy_store.h"

namespace host::store {

/// What a record type is called: "stamp".
const char* objectTypeName(std::uint32_t type);

/// Opens the next revision and keeps every other writer waiting until the transaction ends. Each
/// operation leaves a row in the audit list. Everything throws StoreFailure.
class PolicyChange {
 public:
  /// \param connection  in a transaction that writes \param note  outlives this object
  PolicyChange(Connection& connection, const ChangeNote& note);

  std::int64_t revision() const { return revision_; }
  /// The highest id that an object ever had.
  std::uint32_t lastObjectId() const { return lastObjectId_; }

  /// Adds an object with its id, which is above lastObjectId().
  void addObject(const ObjectRecord& object);
  /// NotFound when there is none of its id, owner and type.
  void changeObject(const ObjectRecord& object);
  /// Takes the object's name away for now, so that others may have it.
  /// \param wanted  names that the change is going to give: it gets none of them meanwhile
  void freeName(const ObjectRecord& object, const std::unordered_set<std::string_view>& wanted);
  /// NotFound, InUse.
  void removeObject(const ObjectRecord& object);

  void addRule(const RuleRecord& rule);
  void removeRule(const RuleRecord& rule);
  /// Takes a rule out, without a word, that `addRule` is going to put back.
  void replaceRule(const RuleRecord& rule);

 private:
  void note(const std::string& what);
  void insertActions(const RuleRecord& rule);

  Connection& connection_;
  const ChangeNote& note_;
  std::int64_t revision_ = 0;
  std::uint32_t lastObjectId_ = 0;
};

}  // namespace host::store
