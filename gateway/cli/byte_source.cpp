#include "gateway/cli/byte_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace gateway::cli {

FileSource::FileSource(const std::string& path)
    : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)), owned_(true) {
  if (descriptor_ < 0) error_ = std::strerror(errno);
}

FileSource::~FileSource() {
  if (owned_ && descriptor_ >= 0) ::close(descriptor_);
}

std::size_t FileSource::read(std::string& out, std::size_t size) {
  if (!error_.empty()) return 0;
  const std::size_t before = out.size();
  out.resize(before + size);
  ssize_t count = 0;
  do {
    count = ::read(descriptor_, out.data() + before, size);
  } while (count < 0 && errno == EINTR);
  if (count < 0) error_ = std::strerror(errno);
  out.resize(before + (count > 0 ? static_cast<std::size_t>(count) : 0));
  return out.size() - before;
}

}  // namespace gateway::cli
