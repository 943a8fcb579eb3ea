#include "gateway/milter/privileges.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace gateway::milter {

std::string becomeUser(const std::string& user) {
  if (::geteuid() != 0) return {};
  if (user.empty()) {
    return "started by root without a user to become (set user in section milter)";
  }
  // One thread is all there is at the start.
  const passwd* entry = ::getpwnam(user.c_str());  // NOLINT(concurrency-mt-unsafe)
  if (entry == nullptr) return "there is no user '" + user + "' (set user in section milter)";
  if (entry->pw_uid == 0) return {};
  if (::initgroups(user.c_str(), entry->pw_gid) != 0 || ::setgid(entry->pw_gid) != 0 ||
      ::setuid(entry->pw_uid) != 0) {
    return "cannot become '" + user + "': " + std::strerror(errno);
  }
  return {};
}

}  // namespace gateway::milter
