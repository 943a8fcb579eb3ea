// The kinds of named objects that a policy can declare: one row each.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "gateway/policy/rows.h"
#include "library/platform/kavi_named_obj.h"

namespace gateway::policy {

/// The longest that an area is kept: a hundred years.
inline constexpr unsigned int kMaxAgingDays = 36'500;

/// What the gateway knows about one kind of named object.
struct ObjectKind {
  std::string_view key;  ///< the list of a policy that declares them
  KaviNamedObj::NaObjType type;
  std::string_view word;     ///< as in messages
  std::string_view example;  ///< an entry of the list

  /// The settings string of an area, made by its record's class.
  std::string (*encodeArea)(const std::string& name, unsigned int agingDays);
  /// A fresh record, not constructed yet.
  std::unique_ptr<KaviNamedObj> (*make)();

  /// A record built from \p setting; null when its `construct` refuses that.
  std::unique_ptr<KaviNamedObj> build(const std::string& setting) const;
};

std::span<const ObjectKind> allObjectKinds();

/// Null when there is none.
const ObjectKind* findObjectKind(unsigned int type);

}  // namespace gateway::policy
