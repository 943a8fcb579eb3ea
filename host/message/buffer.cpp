#include "host/message/buffer.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace host::message {

namespace {

class FileHandle {
 public:
  explicit FileHandle(const char* path) : fd_(::open(path, O_RDONLY | O_CLOEXEC)) {}
  ~FileHandle() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace

std::shared_ptr<const Buffer> Buffer::adopt(std::string&& bytes) {
  return std::make_shared<const Buffer>(std::move(bytes));
}

std::shared_ptr<const Buffer> Buffer::copyOf(std::string_view bytes) {
  return adopt(std::string(bytes));
}

// Read, not mapped: a mapped file that another process cuts short would kill this one.
std::shared_ptr<const Buffer> Buffer::readFile(const std::string& path, std::string& error) {
  const FileHandle file(path.c_str());
  struct stat status {};
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0) {
    error = path + ": " + std::strerror(errno);
    return nullptr;
  }
  std::string bytes;
  // One byte more than the file has: the read that fills the rest finds the end.
  bytes.resize(static_cast<std::size_t>(status.st_size > 0 ? status.st_size : 0) + 1);
  std::size_t filled = 0;
  while (true) {
    if (filled == bytes.size()) bytes.resize(bytes.size() * 2);
    const ssize_t count = ::read(file.get(), bytes.data() + filled, bytes.size() - filled);
    if (count == 0) break;
    if (count < 0) {
      if (errno == EINTR) continue;
      error = path + ": " + std::strerror(errno);
      return nullptr;
    }
    filled += static_cast<std::size_t>(count);
  }
  bytes.resize(filled);
  return adopt(std::move(bytes));
}

Buffer::Buffer(const Mapping& mapping)
    : view_(static_cast<const char*>(mapping.begin), mapping.size), mapped_(mapping.begin) {}

Buffer::~Buffer() {
  if (mapped_ != nullptr) ::munmap(mapped_, view_.size());
}

std::shared_ptr<const Buffer> Buffer::mapFile(int file, std::size_t size, std::string& error) {
  if (size == 0) return copyOf({});
  void* begin = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0);
  if (begin == MAP_FAILED) {
    error = std::string("a file cannot be mapped: ") + std::strerror(errno);
    return nullptr;
  }
  Buffer* made = nullptr;
  try {
    made = new Buffer(Mapping{begin, size});
  } catch (...) {
    ::munmap(begin, size);
    throw;
  }
  return std::shared_ptr<const Buffer>(made);
}

}  // namespace host::message
