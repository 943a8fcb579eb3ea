#include "host/core/folder_access.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace host::core {

std::string folderAbove(const std::string& path) {
  const std::size_t end = path.find_last_not_of('/');
  const std::size_t slash = path.substr(0, end == std::string::npos ? 0 : end + 1).rfind('/');
  if (slash == std::string::npos) return path.starts_with('/') ? "/" : ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

FileError mayKeepFiles(std::string path) {
  struct stat status {};
  while (::stat(path.c_str(), &status) != 0) {
    if (errno != ENOENT || path == "/" || path == ".") return fileErrorOf(errno);
    path = folderAbove(path);
  }
  if (!S_ISDIR(status.st_mode)) return FileError::MissingFolder;
  const int code = ::faccessat(AT_FDCWD, path.c_str(), W_OK | X_OK, AT_EACCESS);
  return code == 0 ? FileError::None : fileErrorOf(errno);
}

}  // namespace host::core
