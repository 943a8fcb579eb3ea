// A policy's rows as the entries of a policy file.
#pragma once

#include <string>
#include <unordered_map>

#include "gateway/policy/node.h"
#include "gateway/policy/rows.h"

namespace gateway::policy {

/// What the objects are called that actions refer to.
class ObjectNames {
 public:
  /// \param rows  outlive this
  explicit ObjectNames(const std::vector<NamedObjectRow>& rows);

  /// The object of that id and type; null when there is none.
  const NamedObjectRow* find(unsigned int id, unsigned int type) const;

 private:
  std::unordered_map<unsigned int, const NamedObjectRow*> byId_;
};

/// The entry of an action: its name, or a map of its name and value. Where no value would give its
/// settings string again, byte for byte, a map of its type and kSettingKey. Its nodes are
/// \p document's, as of all entries.
const Node& actionEntry(const ActionRow& row, const ObjectNames& names, Document& document);

/// The entry of a rule. A condition that cannot be read is its text as it is.
const Node& ruleEntry(const RuleRow& row, const ObjectNames& names, Document& document);

/// A whole policy: lists of the objects that \p rows have, by kind, and the list of rules.
const Node& policyTree(const PolicyRows& rows, Document& document);

}  // namespace gateway::policy
