#include "gateway/milter/privileges.h"

#include <pwd.h>
#include <unistd.h>

#include "host/core/identity.h"

namespace gateway::milter {

std::string dropPrivileges(const std::string& user) {
  if (::geteuid() == 0 && user.empty()) {
    return "started by root without a user to become (set user in section milter)";
  }
  return host::core::becomeUser(user);
}

bool isUser(const std::string& user) {
  if (user.empty()) return true;
  // One thread is all there is at the start.
  const passwd* entry = ::getpwnam(user.c_str());  // NOLINT(concurrency-mt-unsafe)
  return entry == nullptr || entry->pw_uid == ::geteuid();
}

}  // namespace gateway::milter
