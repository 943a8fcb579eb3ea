#include "host/core/identity.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/core/folder_access.h"

namespace host::core {

namespace {

// Whoever owns `path` or, while it is missing, the nearest folder above it.
bool findOwner(std::string path, bool& isThere, struct stat& status) {
  isThere = true;
  while (::stat(path.c_str(), &status) != 0) {
    if (errno != ENOENT || path == "/" || path == ".") return false;
    isThere = false;
    path = folderAbove(path);
  }
  return true;
}

std::string cannotBecome(const std::string& name) {
  return "cannot become user '" + name + "': " + std::strerror(errno);
}

std::string become(const passwd& user) {
  if (::initgroups(user.pw_name, user.pw_gid) != 0 || ::setgid(user.pw_gid) != 0 ||
      ::setuid(user.pw_uid) != 0) {
    return cannotBecome(user.pw_name);
  }
  return {};
}

// One thread is all there is at the start.
const passwd* findUser(const std::string& name) {
  return ::getpwnam(name.c_str());  // NOLINT(concurrency-mt-unsafe)
}
const passwd* findUser(uid_t id) { return ::getpwuid(id); }  // NOLINT(concurrency-mt-unsafe)

// A user who stands in no list has the group of the folder, and no other.
std::string becomeNameless(const struct stat& owner, std::string& became) {
  became = std::to_string(owner.st_uid);
  if (::setgroups(0, nullptr) != 0 || ::setgid(owner.st_gid) != 0 || ::setuid(owner.st_uid) != 0) {
    return cannotBecome(became);
  }
  return {};
}

}  // namespace

std::string becomeUser(const std::string& user) {
  if (::geteuid() != 0) return {};
  const passwd* entry = findUser(user);
  if (entry == nullptr) return "there is no user '" + user + "' (set user in section milter)";
  return entry->pw_uid == 0 ? std::string() : become(*entry);
}

std::string becomeOwner(const std::string& path, const std::string& otherwise,
                        std::string& became) {
  became.clear();
  if (::geteuid() != 0) return {};
  struct stat owner {};
  bool isThere = false;
  // What cannot be looked at fails where it is used, with better words.
  if (!findOwner(path, isThere, owner)) return {};
  if (owner.st_uid != 0) {
    const passwd* entry = findUser(owner.st_uid);
    if (entry == nullptr) return becomeNameless(owner, became);
    became = entry->pw_name;
    return become(*entry);
  }
  if (otherwise.empty()) return {};
  const passwd* entry = findUser(otherwise);
  if (entry != nullptr && entry->pw_uid == 0) return {};
  if (entry != nullptr && !isThere) {
    return path + ": the folder does not exist, and user '" + otherwise +
           "' may not make it (install -d -o " + otherwise + " -m 0700 " + path + " does)";
  }
  became = otherwise;
  return becomeUser(otherwise);
}

}  // namespace host::core
