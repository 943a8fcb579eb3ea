#include "gateway/milter/byte_store.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace gateway::milter {
namespace {

using host::core::FileOps;

/// A file in \p folder that has no name (any more). \return a descriptor, or -errno.
int openNameless(const std::string& folder) {
  const int file = ::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (file >= 0) return file;
  // Not every file system has such files, and some say so in their own way.
  if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) return -errno;
  std::string name = folder + "/body.XXXXXX";
  const int named = ::mkostemp(name.data(), O_CLOEXEC);
  if (named < 0) return -errno;
  ::unlink(name.c_str());
  return named;
}

}  // namespace

bool ByteStore::append(std::string_view bytes) {
  if (!fault_.empty()) return false;
  if (!file_.isOpen()) {
    if (memory_.size() + bytes.size() <= memoryBytes_) {
      memory_.append(bytes);
      size_ += bytes.size();
      return true;
    }
    if (!openFile() || !writeToFile(memory_)) return false;
    std::string().swap(memory_);
  }
  if (!writeToFile(bytes)) return false;
  size_ += bytes.size();
  return true;
}

bool ByteStore::openFile() {
  const int file = openNameless(folder_);
  if (file < 0) {
    fault_ = folder_ + ": no file for a large message: " + std::strerror(-file);
    return false;
  }
  file_ = host::core::Descriptor(FileOps::system(), file);
  return true;
}

bool ByteStore::writeToFile(std::string_view bytes) {
  const int code = FileOps::system().writeAll(file_.get(), bytes.data(), bytes.size());
  if (code == 0) return true;
  fault_ = folder_ + ": a large message cannot be written: " + std::strerror(-code);
  return false;
}

std::shared_ptr<const host::message::Buffer> ByteStore::take() {
  using host::message::Buffer;
  if (!fault_.empty()) return nullptr;
  if (!file_.isOpen()) {
    size_ = 0;
    return Buffer::adopt(std::move(memory_));
  }
  std::shared_ptr<const Buffer> bytes = Buffer::mapFile(file_.get(), size_, fault_);
  file_.reset();
  size_ = 0;
  return bytes;
}

}  // namespace gateway::milter
