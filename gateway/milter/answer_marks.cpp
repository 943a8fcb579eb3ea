#include "gateway/milter/answer_marks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <string_view>
#include <vector>

#include "host/core/folder.h"
#include "host/delivery/digest.h"

namespace gateway::milter {
namespace {

/// Longer than any sender tries (RFC 5321 section 4.5.4.1 speaks of four to five days).
constexpr std::time_t kMemorySeconds = std::time_t{30} * 24 * 60 * 60;

bool isOld(const std::string& path) {
  struct stat state {};
  return ::stat(path.c_str(), &state) == 0 && state.st_mtime + kMemorySeconds < std::time(nullptr);
}

}  // namespace

std::string AnswerMarks::open(const std::string& folder) {
  using host::core::FileError;
  host::core::Folder marks;
  std::vector<std::string> names;
  FileError error = marks.open(folder, true);
  if (error == FileError::None) error = marks.list(names);
  if (error != FileError::None) return folder + ": " + host::core::fileErrorText(error);
  folder_ = folder;
  const std::string prefix = folder + "/";
  for (const std::string& name : names) {
    const std::string path = prefix + name;
    if (isOld(path)) {
      ::unlink(path.c_str());
    } else {
      keep(name);
    }
  }
  return {};
}

bool AnswerMarks::begin(const host::store::Digest& message) {
  const std::string name = host::delivery::toHex(message);
  const std::string path = folder_ + "/" + name;
  const bool isStale = isOld(path);
  // Without a mark, on a full disk, nothing is worse than a doubling that nobody is told of.
  const host::core::Descriptor mark(
      host::core::FileOps::system(),
      ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, 0600));
  const std::lock_guard lock(mutex_);
  own_.insert(name);
  return left_.take(name) && !isStale;
}

void AnswerMarks::end(const host::store::Digest& message) {
  const std::string name = host::delivery::toHex(message);
  ::unlink((folder_ + "/" + name).c_str());
  const std::lock_guard lock(mutex_);
  own_.erase(name);
  answered_.keep(name);
}

bool AnswerMarks::wasAnswered(const host::store::Digest& message) {
  const std::lock_guard lock(mutex_);
  return answered_.holds(host::delivery::toHex(message), std::chrono::seconds(kMemorySeconds));
}

void AnswerMarks::leave(const host::store::Digest& message) {
  const std::string name = host::delivery::toHex(message);
  const std::lock_guard lock(mutex_);
  if (own_.erase(name) != 0) keep(name);
}

void AnswerMarks::keep(const std::string& name) {
  if (const auto first = left_.keep(name)) ::unlink((folder_ + "/" + *first).c_str());
}

void AnswerMarks::endAll() {
  const std::lock_guard lock(mutex_);
  for (const std::string& name : own_) ::unlink((folder_ + "/" + name).c_str());
  own_.clear();
}

}  // namespace gateway::milter
