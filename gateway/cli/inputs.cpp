#include "gateway/cli/inputs.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include "gateway/cli/byte_source.h"
#include "gateway/cli/mbox.h"

namespace gateway::cli {
namespace {

namespace fs = std::filesystem;
using host::message::Buffer;

constexpr char kStandardInput[] = "-";

/// "a/b.eml", 2 → "a/b-2.eml".
std::string numbered(const std::string& name, unsigned int number) {
  const std::size_t slash = name.rfind('/');
  const std::size_t base = slash == std::string::npos ? 0 : slash + 1;
  std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || dot <= base) dot = name.size();
  return name.substr(0, dot) + "-" + std::to_string(number) + name.substr(dot);
}

std::string reason(const std::error_code& error) { return error.message(); }

void noteLeftOut(const fs::path& path, std::size_t& count, LeftOut& left) {
  ++count;
  if (left.first.empty() || path.string() < left.first) left.first = path.string();
}

/// All regular files below \p folder but hidden ones, ordered by path.
/// \param outFolder  not looked into; may be empty
std::vector<fs::path> filesBelow(const fs::path& folder, const fs::path& outFolder,
                                 std::vector<InputFault>& faults, LeftOut& left) {
  std::vector<fs::path> files;
  std::error_code error;
  fs::recursive_directory_iterator entry(folder, fs::directory_options::none, error);
  if (error) faults.push_back({folder.string(), reason(error)});
  while (!error && entry != fs::recursive_directory_iterator()) {
    std::error_code ignored;
    const bool hidden = entry->path().filename().string().starts_with('.');
    if (entry->is_directory(ignored)) {
      const bool out = !outFolder.empty() && fs::equivalent(entry->path(), outFolder, ignored);
      if (hidden || out) {
        if (!out) noteLeftOut(entry->path(), left.hidden, left);
        entry.disable_recursion_pending();
      } else if (::access(entry->path().c_str(), R_OK | X_OK) != 0) {
        // The iterator itself would end the whole walk here.
        faults.push_back({entry->path().string(), std::strerror(errno)});
        entry.disable_recursion_pending();
      }
    } else if (hidden) {
      noteLeftOut(entry->path(), left.hidden, left);
    } else if (entry->is_regular_file(ignored)) {
      files.push_back(entry->path());
    } else {
      noteLeftOut(entry->path(), left.special, left);
    }
    entry.increment(error);
    if (error) faults.push_back({folder.string(), reason(error)});
  }
  std::sort(files.begin(), files.end());
  return files;
}

/// Reads a file that may be an mbox, message by message.
bool readDivided(const InputFile& file, ByteSource& source,
                 const std::function<bool(InputMessage)>& take) {
  MboxReader reader(source);
  std::size_t number = 0;
  while (std::optional<MboxMessage> next = reader.next()) {
    InputMessage message;
    message.file = &file;
    if (reader.isMbox()) message.number = ++number;
    message.error = reader.error();
    message.separator = std::move(next->separator);
    if (message.error.empty()) message.bytes = Buffer::adopt(std::move(next->bytes));
    const bool stop = !message.error.empty();
    if (!take(std::move(message))) return false;
    if (stop) return true;
  }
  return true;
}

/// Whether the file may be an mbox, from its first bytes.
bool looksDivided(const InputFile& file) {
  if (!file.regular) return true;
  FileSource source(file.path);
  std::string start;
  source.read(start, 5);
  return start == "From ";
}

}  // namespace

OutputNames::OutputNames(const std::vector<std::string>& reserved)
    : files_(reserved.begin(), reserved.end()) {}

bool OutputNames::isFree(const std::string& name) const {
  if (files_.count(name) != 0 || folders_.count(name) != 0) return false;
  for (std::size_t slash = name.find('/'); slash != std::string::npos;
       slash = name.find('/', slash + 1)) {
    if (files_.count(name.substr(0, slash)) != 0) return false;
  }
  return true;
}

/// Numbers are never given back, so that many inputs of one name take linear time.
unsigned int& OutputNames::nextNumber(const std::string& name) {
  return next_.try_emplace(name, 2).first->second;
}

std::string OutputNames::reserve(const std::string& wanted) {
  std::string name = wanted;
  // A folder whose name is taken by a file goes under another name, with all that is in it.
  for (std::size_t slash = name.find('/'); slash != std::string::npos;
       slash = name.find('/', slash + 1)) {
    const std::string folder = name.substr(0, slash);
    std::string free = folder;
    for (unsigned int i = 2; files_.count(free) != 0; ++i) free = numbered(folder, i);
    name.replace(0, slash, free);
    slash = free.size();
    folders_.insert(free);
  }
  std::string free = name;
  if (!isFree(free)) {
    unsigned int& number = nextNumber(name);
    while (!isFree(free)) free = numbered(name, number++);
  }
  files_.insert(free);
  return free;
}

Inputs Inputs::collect(const std::vector<std::string>& arguments, const std::string& outFolder,
                       const std::vector<std::string>& reserved) {
  Inputs inputs;
  OutputNames names(reserved);
  for (const std::string& argument : arguments) {
    if (argument == kStandardInput) {
      struct stat status {};
      if (::fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode)) {
        inputs.identities_.emplace(status.st_dev, status.st_ino);
      }
      inputs.files_.push_back({argument, names.reserve("stdin.eml"), false});
      continue;
    }
    std::error_code error;
    const fs::file_status status = fs::status(argument, error);
    if (fs::is_directory(status)) {
      inputs.addFolder(argument, outFolder, names);
    } else if (!fs::exists(status)) {
      inputs.faults_.push_back({argument, error ? reason(error) : "No such file or directory"});
    } else {
      inputs.add(argument, fs::path(argument).filename().string(), names);
    }
  }
  return inputs;
}

void Inputs::add(const std::string& path, const std::string& wanted, OutputNames& names) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    faults_.push_back({path, std::strerror(errno)});
    return;
  }
  identities_.emplace(status.st_dev, status.st_ino);
  files_.push_back({path, names.reserve(wanted), S_ISREG(status.st_mode)});
}

void Inputs::addFolder(const std::string& folder, const std::string& outFolder,
                       OutputNames& names) {
  LeftOut left;
  left.folder = folder;
  for (const fs::path& path : filesBelow(folder, outFolder, faults_, left)) {
    add(path.string(), path.lexically_relative(folder).generic_string(), names);
  }
  if (!left.first.empty()) leftOut_.push_back(std::move(left));
}

void Inputs::protect(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) identities_.emplace(status.st_dev, status.st_ino);
}

bool Inputs::isInput(const std::string& path) const {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 &&
         identities_.count({status.st_dev, status.st_ino}) != 0;
}

void forEachMessage(const Inputs& inputs, const std::function<bool(InputMessage)>& take) {
  for (const InputFile& file : inputs.files()) {
    if (!looksDivided(file)) {
      InputMessage message;
      message.file = &file;
      if (!take(std::move(message))) return;
      continue;
    }
    const bool standardInput = file.path == kStandardInput;
    std::optional<FileSource> source;
    if (standardInput) {
      source.emplace(STDIN_FILENO);
    } else {
      source.emplace(file.path);
    }
    if (!readDivided(file, *source, take)) return;
  }
}

}  // namespace gateway::cli
