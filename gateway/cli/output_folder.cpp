#include "gateway/cli/output_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <tuple>
#include <unordered_set>
#include <utility>

namespace gateway::cli {
namespace {

using host::core::FileError;
using host::core::Folder;

/// A relative name as its folder and the name in it.
std::pair<std::string, std::string> divided(const std::string& path, const std::string& name) {
  const std::size_t slash = name.rfind('/');
  if (slash == std::string::npos) return {path, name};
  return {path + "/" + name.substr(0, slash), name.substr(slash + 1)};
}

constexpr char kRecord[] = ".kavi-outputs";

/// Names end in NUL, the one byte that none can hold. A last one without it was cut off.
std::vector<std::string> namesIn(const std::string& record) {
  std::vector<std::string> names;
  std::size_t begin = 0;
  for (std::size_t end = record.find('\0'); end != std::string::npos;
       end = record.find('\0', begin)) {
    names.push_back(record.substr(begin, end - begin));
    begin = end + 1;
  }
  return names;
}

/// Removes the file \p name below \p folder without following a link, whatever the record says:
/// nothing outside the folder can be meant.
/// \return 0 or the errno value; a name that is not there is no error.
int removeBelow(int folder, const std::string& name) {
  int at = ::dup(folder);
  std::size_t begin = 0;
  int error = at < 0 ? errno : 0;
  for (std::size_t end = name.find('/'); error == 0 && end != std::string::npos;
       end = name.find('/', begin)) {
    const std::string step = name.substr(begin, end - begin);
    begin = end + 1;
    if (step.empty() || step == "." || step == "..") error = EINVAL;
    if (error != 0) break;
    const int next = ::openat(at, step.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (next < 0) error = errno;
    ::close(at);
    at = next;
  }
  if (error == 0 && ::unlinkat(at, name.c_str() + begin, 0) != 0) error = errno;
  if (at >= 0) ::close(at);
  return error == ENOENT || error == ENOTDIR ? 0 : error;
}

}  // namespace

const std::vector<std::string>& adapterNames() {
  static const std::vector<std::string> kNames = {"deleted",    "postponed",   "handoff",
                                                  "quarantine", "archive",     "resend",
                                                  "delivered",  "calls.jsonl", ".kavi-outputs"};
  return kNames;
}

OutputFolder::OutputFolder(std::string path, const Inputs& inputs, OutputUse use)
    : path_(std::move(path)), inputs_(inputs), use_(use) {
  while (path_.size() > 1 && path_.back() == '/') path_.pop_back();
}

std::string OutputFolder::inputInTheWay() const {
  for (const InputFile& file : inputs_.files()) {
    if (isInput(file.outputName)) return pathOf(file.outputName);
  }
  return {};
}

OutputFolder::~OutputFolder() {
  if (record_ >= 0) ::close(record_);
}

std::vector<std::string> OutputFolder::wanted() const {
  std::vector<std::string> names;
  if (use_ == OutputUse::Preview) names.emplace_back("calls.jsonl");
  for (const InputFile& file : inputs_.files()) names.push_back(file.outputName);
  return names;
}

std::string OutputFolder::strangerInTheWay(const std::vector<std::string>& recorded) const {
  const std::unordered_set<std::string> known(recorded.begin(), recorded.end());
  for (const std::string& name : wanted()) {
    struct stat status {};
    if (known.count(name) != 0 || ::lstat(pathOf(name).c_str(), &status) != 0) continue;
    return pathOf(name) + (S_ISDIR(status.st_mode) ? ": is a folder"
                           : use_ == OutputUse::Preview
                               ? ": is not from an earlier run"
                               : ": is there already, and not from a run to be repeated");
  }
  return {};
}

std::string OutputFolder::removeRecorded(const std::vector<std::string>& recorded) const {
  for (const std::string& name : recorded) {
    if (isInput(name)) return pathOf(name) + ": is an input";
  }
  Folder folder;
  if (folder.open(path_, false) != FileError::None) return path_ + ": cannot be opened";
  for (const std::string& name : recorded) {
    if (const int error = removeBelow(folder.descriptor(), name); error != 0) {
      return pathOf(name) + ": " + std::strerror(error);
    }
  }
  std::size_t swept = 0;
  host::core::sweepTemporaries(folder, swept);
  return {};
}

std::string OutputFolder::begin() {
  Folder folder;
  if (const FileError error = folder.open(path_, true); error != FileError::None) {
    struct stat status {};
    const bool isOther = ::stat(path_.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
    return path_ + (isOther ? ": is no folder"
                            : std::string(": cannot be made: ") + host::core::fileErrorText(error));
  }
  host::core::FileOps& ops = folder.ops();
  const int opened = ops.openFile(folder.descriptor(), kRecord, O_RDWR | O_CREAT | O_APPEND);
  if (opened < 0) return pathOf(kRecord) + ": " + std::strerror(-opened);
  record_ = opened;
  if (ops.lock(record_, false) < 0) return path_ + ": another run writes there";
  constexpr std::size_t kMaxRecord = std::size_t{1} << 30;
  std::string bytes;
  if (const int error = ops.readAll(record_, kMaxRecord, bytes); error < 0) {
    return pathOf(kRecord) + ": " + std::strerror(-error);
  }
  std::vector<std::string> recorded = namesIn(bytes);
  std::string fault = strangerInTheWay(recorded);
  const bool none = recorded.empty();
  if (use_ == OutputUse::Mail) {
    const std::vector<std::string> names = wanted();
    const std::unordered_set<std::string> mine(names.begin(), names.end());
    const auto others = std::stable_partition(
        recorded.begin(), recorded.end(), [&](const auto& name) { return mine.contains(name); });
    kept_.assign(others, recorded.end());
    recorded.erase(others, recorded.end());
  }
  if (fault.empty()) fault = removeRecorded(recorded);
  if (!fault.empty()) {
    if (none) ops.unlink(folder.descriptor(), kRecord);
    return fault;
  }
  return release();
}

std::string OutputFolder::release() {
  if (record_ < 0) return {};
  // What is not in the record any more is simply never removed by a run.
  const int emptied = host::core::FileOps::system().truncate(record_, 0);
  if (emptied < 0) return pathOf(kRecord) + ": " + std::strerror(-emptied);
  std::string fault;
  for (const std::string& name : kept_) {
    if (fault.empty()) fault = record(name);
  }
  return fault;
}

std::string OutputFolder::record(const std::string& name) const {
  if (record_ < 0) return {};
  // One write, appended: threads do not get into each other's names.
  const int error = host::core::FileOps::system().writeAll(record_, name.c_str(), name.size() + 1);
  return error < 0 ? pathOf(kRecord) + ": " + std::strerror(-error) : std::string();
}

OutputFile::OutputFile(const OutputFolder& folder, const std::string& name)
    : out_(folder), name_(name) {
  std::string folderPath;
  std::tie(folderPath, fileName_) = divided(out_.path(), name);
  error_ = folder_.open(folderPath, true);
  if (error_ != FileError::None) return;
  file_.emplace(folder_,
                out_.isMail() ? host::core::Durability::Flushed : host::core::Durability::Buffered);
  error_ = file_->create();
}

OutputFile::~OutputFile() = default;

bool OutputFile::write(const char* data, std::size_t size) {
  if (error_ == FileError::None) error_ = file_->write(data, size);
  return error_ == FileError::None;
}

std::string OutputFile::commit() {
  if (error_ != FileError::None) return failure(error_);
  const FileError error = file_->commit(fileName_);
  return error == FileError::None ? out_.record(name_) : failure(error);
}

std::string OutputFile::failure(FileError error) const {
  return out_.pathOf(name_) + ": " + host::core::fileErrorText(error);
}

}  // namespace gateway::cli
