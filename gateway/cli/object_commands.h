// `kavi object`: the named objects of a store, one operation of the administration's access to them
// for each command.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "gateway/cli/object_content.h"
#include "gateway/cli/store_setup.h"

namespace gateway::cli {

/// What the object commands have in common.
struct ObjectOptions {
  StoreOptions store;
  std::optional<std::uint32_t> owner;  ///< nothing: that of policies
  bool json = false;
};

/// A part of a listing; without either number, all of it.
struct ObjectListOptions {
  std::string type;  ///< empty: every type
  std::optional<std::uint32_t> after;
  std::optional<std::size_t> limit;
};

/// `kavi object list [TYPE]`: what there is, by type and id; a part of it by id.
/// \return the exit status, as of all these: 1 when the operation's result is not 0
int objectListCommand(const ObjectOptions& options, const ObjectListOptions& list);

/// `kavi object show ID|TYPE NAME`: everything about one.
/// \param entry  only its entry, as in a policy
int objectShowCommand(const ObjectOptions& options, const std::vector<std::string>& target,
                      bool entry);

/// `kavi object add TYPE NAME …`
int objectAddCommand(const ObjectOptions& options, const std::vector<std::string>& arguments,
                     const ContentOptions& content);

/// `kavi object update ID|TYPE NAME …`: what is not given stays.
/// \param name  a new one; nothing for none
int objectUpdateCommand(const ObjectOptions& options, const std::vector<std::string>& arguments,
                        const ContentOptions& content, const std::optional<std::string>& name);

/// `kavi object remove ID|TYPE NAME`: names the rules that need it when it is kept for them.
int objectRemoveCommand(const ObjectOptions& options, const std::vector<std::string>& target);

}  // namespace gateway::cli
