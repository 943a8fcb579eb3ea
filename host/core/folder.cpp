#include "host/core/folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>

namespace host::core {

namespace {

// Makes every folder of `path`, one after the other; each is made durable in the one above.
FileError makeFolders(FileOps& ops, const std::string& path) {
  std::size_t end = 0;
  while (end != std::string::npos) {
    end = path.find('/', end + 1);
    const std::string part = path.substr(0, end);
    const int made = ops.makeFolder(part);
    if (made == -EEXIST) continue;
    if (made < 0) return fileErrorOf(-made);
    const std::size_t slash = part.find_last_of('/');
    const std::string above = slash == std::string::npos ? "." : part.substr(0, slash + 1);
    const Descriptor parent(ops, ops.openFolder(above));
    // One that may be passed but not read cannot be flushed; the entry is there all the same.
    if (!parent.isOpen()) continue;
    const int synced = ops.sync(parent.get());
    if (synced < 0) return fileErrorOf(-synced);
  }
  return FileError::None;
}

}  // namespace

FileError Folder::open(const std::string& path, bool create) {
  int opened = ops_->openFolder(path);
  if (opened == -ENOENT && create && !path.empty()) {
    const FileError error = makeFolders(*ops_, path);
    if (error != FileError::None) return error;
    opened = ops_->openFolder(path);
  }
  if (opened < 0) return fileErrorOf(-opened);
  descriptor_ = Descriptor(*ops_, opened);
  return FileError::None;
}

FileError Folder::openIn(const Folder& parent, const std::string& name, bool* made) {
  if (made != nullptr) *made = false;
  int opened = ops_->openFolder(name, parent.descriptor());
  if (opened == -ENOENT) {
    const int result = ops_->makeFolder(name, parent.descriptor());
    if (result < 0 && result != -EEXIST) return fileErrorOf(-result);
    if (made != nullptr) *made = result == 0;
    opened = ops_->openFolder(name, parent.descriptor());
  }
  if (opened < 0) return fileErrorOf(-opened);
  descriptor_ = Descriptor(*ops_, opened);
  return FileError::None;
}

FileError Folder::sync() const {
  const int synced = ops_->sync(descriptor_.get());
  return synced < 0 ? fileErrorOf(-synced) : FileError::None;
}

FileError Folder::list(std::vector<std::string>& names) const {
  names.clear();
  // A stream of its own: the position in a folder belongs to the open file, not to the reader.
  Descriptor own(*ops_, ops_->openFolder(".", descriptor_.get()));
  if (!own.isOpen()) return fileErrorOf(-own.get());
  struct Closer {
    void operator()(DIR* stream) const { ::closedir(stream); }
  };
  const std::unique_ptr<DIR, Closer> stream(::fdopendir(own.get()));
  if (stream == nullptr) return fileErrorOf(errno);
  own.release();
  errno = 0;
  while (const dirent* entry = ::readdir(stream.get())) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
    errno = 0;
  }
  if (errno != 0) return fileErrorOf(errno);
  std::sort(names.begin(), names.end());
  return FileError::None;
}

FileError Folder::read(const std::string& name, std::size_t limit, std::string& bytes) const {
  bytes.clear();
  const Descriptor file(*ops_, ops_->openFile(descriptor_.get(), name, O_RDONLY));
  if (!file.isOpen()) return fileErrorOf(-file.get());
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return fileErrorOf(errno);
  if (!S_ISREG(status.st_mode) || static_cast<std::uint64_t>(status.st_size) > limit) {
    return FileError::InputOutput;
  }
  bytes.reserve(static_cast<std::size_t>(status.st_size));
  const int got = ops_->readAll(file.get(), limit, bytes);
  if (got == -EFBIG) return FileError::InputOutput;
  return got < 0 ? fileErrorOf(-got) : FileError::None;
}

FileError Folder::remove(const std::string& name) const {
  const int removed = ops_->unlink(descriptor_.get(), name);
  return removed < 0 ? fileErrorOf(-removed) : sync();
}

}  // namespace host::core
