#include "host/core/resource_path.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>

namespace host::core {

namespace {

bool holdsTexts(const std::string& folder) {
  return ::access((folder + "/root.res").c_str(), R_OK) == 0;
}

// The folder of the file that this code was loaded from, or "" when nobody can say.
std::string ownFolder() {
  static const char kAnchor = 0;
  Dl_info info{};
  if (::dladdr(&kAnchor, &info) == 0 || info.dli_fname == nullptr) return {};
  struct Freer {
    char* path;
    ~Freer() { std::free(path); }
  };
  const Freer real{::realpath(info.dli_fname, nullptr)};
  if (real.path == nullptr) return {};
  const std::string path = real.path;
  return path.substr(0, path.rfind('/'));
}

}  // namespace

std::string findResourceFolder() {
  const char* named = ::secure_getenv("KAVI_RESOURCES");
  if (named != nullptr && *named != '\0') return named;
  const std::string own = ownFolder();
  if (!own.empty()) {
    for (const char* way : {"/../share/kavi/resources", "/../../share/kavi/resources"}) {
      std::string folder = own + way;
      if (holdsTexts(folder)) return folder;
    }
  }
  return KAVI_INSTALLED_RESOURCES;
}

}  // namespace host::core
