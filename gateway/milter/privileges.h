// Giving up the rights of root.
#pragma once

#include <string>

namespace gateway::milter {

/// Makes the process run as \p user, with that user's groups, when root started it. Root must name
/// one, if only itself: mail from anywhere is not to be taken apart by root by accident.
/// \return an error text; empty for success.
std::string dropPrivileges(const std::string& user);

/// Whether the process runs as \p user; true when none is named, or nobody of that name is there.
bool isUser(const std::string& user);

}  // namespace gateway::milter
