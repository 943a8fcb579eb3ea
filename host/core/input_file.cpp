#include "host/core/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace host::core {

namespace {

bool isGiven(const std::string& path) {
  for (const char* folder : {"/dev/fd/", "/proc/self/fd/"}) {
    if (path.compare(0, std::strlen(folder), folder) == 0) return true;
  }
  return path == "/dev/stdin";
}

}  // namespace

int openInput(const std::string& path, Descriptor& file) {
  const bool given = isGiven(path);
  // Opening a pipe waits for its writer, unless told not to.
  const int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | (given ? 0 : O_NONBLOCK);
  Descriptor opened(FileOps::system(), ::open(path.c_str(), flags));
  struct stat status {};
  if (!opened.isOpen() || ::fstat(opened.get(), &status) != 0) return errno;
  if (!given && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) return kNoRegularFile;
  file = std::move(opened);
  return 0;
}

}  // namespace host::core
