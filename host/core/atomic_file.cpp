#include "host/core/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <ctime>
#include <utility>
#include <vector>

#include "host/core/unique_id.h"

namespace host::core {

namespace {

constexpr std::string_view kTemporaryPrefix = ".tmp-";
constexpr std::size_t kBufferBytes = std::size_t{64} * 1024;
constexpr time_t kMinimumAgeSeconds = 60;

// A live writer holds the lock, and the kernel drops it with the process.
bool isAbandoned(FileOps& ops, int file) {
  struct stat status {};
  if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  return std::time(nullptr) - status.st_mtime >= kMinimumAgeSeconds && ops.lock(file, false) == 0;
}

}  // namespace

AtomicFile::AtomicFile(const Folder& folder, Durability durability)
    : folder_(folder), durability_(durability) {}

AtomicFile::~AtomicFile() { discard(); }

FileError AtomicFile::create() {
  FileOps& ops = folder_.ops();
  buffer_.reserve(kBufferBytes);
  std::string name = std::string(kTemporaryPrefix) + makeUniqueId();
  const int opened = ops.openFile(folder_.descriptor(), name, O_WRONLY | O_CREAT | O_EXCL);
  if (opened < 0) return fail(opened);
  file_ = Descriptor(ops, opened);
  temporary_.swap(name);
  const int locked = ops.lock(opened, false);
  return locked < 0 ? fail(locked) : FileError::None;
}

FileError AtomicFile::fail(int result) {
  if (error_ == FileError::None) error_ = fileErrorOf(-result);
  return error_;
}

FileError AtomicFile::write(const char* data, std::size_t size) {
  if (error_ != FileError::None) return error_;
  if (!file_.isOpen()) return fail(-EBADF);
  if (size <= kBufferBytes - buffer_.size()) {
    buffer_.append(data, size);
    return FileError::None;
  }
  int written = folder_.ops().writeAll(file_.get(), buffer_.data(), buffer_.size());
  buffer_.clear();
  if (written == 0 && size >= kBufferBytes) {
    written = folder_.ops().writeAll(file_.get(), data, size);
  } else {
    buffer_.append(data, size);
  }
  return written < 0 ? fail(written) : FileError::None;
}

FileError AtomicFile::flush() {
  if (flushed_) return FileError::None;
  FileOps& ops = folder_.ops();
  const int written = ops.writeAll(file_.get(), buffer_.data(), buffer_.size());
  if (written < 0) return fail(written);
  if (durability_ == Durability::Flushed) {
    const int synced = ops.sync(file_.get());
    if (synced < 0) return fail(synced);
  }
  flushed_ = true;
  return FileError::None;
}

FileError AtomicFile::commit(const std::string& name, Descriptor* locked) {
  if (error_ != FileError::None) return error_;
  if (temporary_.empty()) return fail(-EBADF);
  if (flush() != FileError::None) return error_;
  FileOps& ops = folder_.ops();
  const int renamed = ops.rename(folder_.descriptor(), temporary_, name);
  if (renamed == -EEXIST) return FileError::Exists;
  if (renamed < 0) return fail(renamed);
  temporary_.clear();
  if (durability_ == Durability::Flushed) {
    error_ = folder_.sync();
    if (error_ != FileError::None) {
      // Whether the name survives a power cut is open, so it must not survive at all: the caller
      // keeps the message, and would have it twice.
      ops.unlink(folder_.descriptor(), name);
      return error_;
    }
  }
  if (locked != nullptr) *locked = std::move(file_);
  file_.reset();
  return FileError::None;
}

void AtomicFile::discard() {
  if (!temporary_.empty()) folder_.ops().unlink(folder_.descriptor(), temporary_);
  temporary_.clear();
}

bool isTemporaryName(std::string_view name) {
  return name.substr(0, kTemporaryPrefix.size()) == kTemporaryPrefix;
}

FileError sweepTemporaries(const Folder& folder, std::size_t& removed) {
  removed = 0;
  std::vector<std::string> names;
  const FileError error = folder.list(names);
  if (error != FileError::None) return error;
  FileOps& ops = folder.ops();
  for (const std::string& name : names) {
    if (!isTemporaryName(name)) continue;
    const Descriptor file(ops, ops.openFile(folder.descriptor(), name, O_RDONLY));
    if (!file.isOpen() || !isAbandoned(ops, file.get())) continue;
    if (ops.unlink(folder.descriptor(), name) == 0) ++removed;
  }
  return FileError::None;
}

}  // namespace host::core
