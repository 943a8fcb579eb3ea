#include "host/core/file_ops.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace host::core {

namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr std::size_t kReadBytes = std::size_t{64} * 1024;

// Repeats `call` while a signal interrupts it; its failure becomes the negative errno value.
template <class Call>
auto repeated(Call call) -> decltype(call()) {
  while (true) {
    const auto result = call();
    if (result >= 0) return result;
    if (errno != EINTR) return static_cast<decltype(call())>(-errno);
  }
}

}  // namespace

int FileOps::openFolder(const std::string& path, int parent) {
  const bool within = parent >= 0;
  const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (within ? O_NOFOLLOW : 0);
  return repeated([&] { return ::openat(within ? parent : AT_FDCWD, path.c_str(), flags); });
}

int FileOps::makeFolder(const std::string& path, int parent) {
  return repeated(
      [&] { return ::mkdirat(parent >= 0 ? parent : AT_FDCWD, path.c_str(), kFolderMode); });
}

int FileOps::openFile(int folder, const std::string& name, int flags) {
  return repeated([&] {
    return ::openat(folder, name.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, kFileMode);
  });
}

ssize_t FileOps::read(int file, char* data, std::size_t size) {
  return repeated([&] { return ::read(file, data, size); });
}

ssize_t FileOps::write(int file, const char* data, std::size_t size) {
  return repeated([&] { return ::write(file, data, size); });
}

int FileOps::sync(int descriptor) {
  return repeated([&] { return ::fsync(descriptor); });
}

int FileOps::close(int descriptor) {
  // Linux releases the descriptor even when the call is interrupted: never twice.
  return ::close(descriptor) == 0 || errno == EINTR ? 0 : -errno;
}

int FileOps::rename(int folder, const std::string& from, const std::string& to) {
  const int renamed = repeated(
      [&] { return ::renameat2(folder, from.c_str(), folder, to.c_str(), RENAME_NOREPLACE); });
  if (renamed != -EINVAL && renamed != -ENOSYS) return renamed;
  // A file system without that flag: a second link is refused as well when the name is taken.
  const int linked =
      repeated([&] { return ::linkat(folder, from.c_str(), folder, to.c_str(), 0); });
  if (linked < 0) return linked;
  const int unlinked = unlink(folder, from);
  // Under both names it would be stored and reported as failed.
  if (unlinked < 0) unlink(folder, to);
  return unlinked;
}

int FileOps::readAll(int file, std::size_t limit, std::string& bytes) {
  char buffer[kReadBytes];
  while (true) {
    const ssize_t got = read(file, buffer, sizeof buffer);
    if (got <= 0) return static_cast<int>(got);
    if (static_cast<std::size_t>(got) > limit - bytes.size()) return -EFBIG;
    bytes.append(buffer, static_cast<std::size_t>(got));
  }
}

int FileOps::writeAll(int file, const char* data, std::size_t size) {
  while (size != 0) {
    const ssize_t written = write(file, data, size);
    if (written < 0) return static_cast<int>(written);
    if (written == 0) return -EIO;
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return 0;
}

int FileOps::unlink(int folder, const std::string& name) {
  return repeated([&] { return ::unlinkat(folder, name.c_str(), 0); });
}

int FileOps::truncate(int file, off_t size) {
  return repeated([&] { return ::ftruncate(file, size); });
}

int FileOps::lock(int file, bool wait) {
  return repeated([&] { return ::flock(file, LOCK_EX | (wait ? 0 : LOCK_NB)); });
}

FileOps& FileOps::system() {
  static FileOps instance;
  return instance;
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  if (this != &other) {
    reset();
    ops_ = other.ops_;
    descriptor_ = other.release();
  }
  return *this;
}

int Descriptor::release() {
  const int descriptor = descriptor_;
  descriptor_ = -1;
  return descriptor;
}

void Descriptor::reset() {
  if (descriptor_ >= 0) ops_->close(release());
}

}  // namespace host::core
