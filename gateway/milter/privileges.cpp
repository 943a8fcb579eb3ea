#include "gateway/milter/privileges.h"

#include <unistd.h>

#include "host/core/identity.h"

namespace gateway::milter {

std::string dropPrivileges(const std::string& user) {
  if (::geteuid() == 0 && user.empty()) {
    return "started by root without a user to become (set user in section milter)";
  }
  return host::core::becomeUser(user);
}

}  // namespace gateway::milter
