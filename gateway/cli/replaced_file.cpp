#include "gateway/cli/replaced_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace gateway::cli {
namespace {

constexpr mode_t kPermissions = 07777;

bool writeAll(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(file, text.data(), text.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

/// Gives \p file the permissions of what stands at \p path, if anything does.
bool keepPermissions(int file, const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return errno == ENOENT;
  if (!S_ISREG(status.st_mode)) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : EEXIST;
    return false;
  }
  return ::fchmod(file, status.st_mode & kPermissions) == 0;
}

}  // namespace

std::string replaceFile(const std::string& path, std::string_view text) {
  std::string temporary = path + ".XXXXXX";
  const int file = ::mkostemp(temporary.data(), O_CLOEXEC);
  if (file < 0) return std::string("cannot be written: ") + std::strerror(errno);
  bool good = keepPermissions(file, path) && writeAll(file, text) && ::fsync(file) == 0;
  int fault = errno;
  if (::close(file) != 0 && good) {
    good = false;
    fault = errno;
  }
  if (good && ::rename(temporary.c_str(), path.c_str()) == 0) return {};
  if (good) fault = errno;
  ::unlink(temporary.c_str());
  return std::string("cannot be written: ") + std::strerror(fault);
}

}  // namespace gateway::cli
