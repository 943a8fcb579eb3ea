#include "gateway/cli/output_folder.h"

#include <tuple>
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

}  // namespace

const std::vector<std::string>& adapterNames() {
  static const std::vector<std::string> kNames = {"deleted",    "postponed",  "handoff",
                                                  "quarantine", "archive",    "resend",
                                                  "delivered",  "calls.jsonl"};
  return kNames;
}

OutputFolder::OutputFolder(std::string path, const Inputs& inputs)
    : path_(std::move(path)), inputs_(inputs) {
  while (path_.size() > 1 && path_.back() == '/') path_.pop_back();
}

std::string OutputFolder::inputInTheWay() const {
  for (const InputFile& file : inputs_.files()) {
    if (isInput(file.outputName)) return pathOf(file.outputName);
  }
  return {};
}

std::string OutputFolder::remove(const std::string& name) const {
  if (isInput(name)) return pathOf(name) + ": is an input";
  const auto [folderPath, fileName] = divided(path_, name);
  Folder folder;
  if (folder.open(folderPath, false) != FileError::None) return {};
  folder.ops().unlink(folder.descriptor(), fileName);
  return {};
}

OutputFile::OutputFile(const OutputFolder& folder, const std::string& name)
    : out_(folder), name_(name) {
  std::string folderPath;
  std::tie(folderPath, fileName_) = divided(out_.path(), name);
  error_ = folder_.open(folderPath, true);
  if (error_ != FileError::None) return;
  file_.emplace(folder_, host::core::Durability::Buffered);
  error_ = file_->create();
}

OutputFile::~OutputFile() = default;

bool OutputFile::write(const char* data, std::size_t size) {
  if (error_ == FileError::None) error_ = file_->write(data, size);
  return error_ == FileError::None;
}

std::string OutputFile::commit() {
  if (error_ != FileError::None) return failure(error_);
  FileError error = file_->commit(fileName_);
  if (error == FileError::Exists) {
    if (out_.isInput(name_)) return out_.pathOf(name_) + ": is an input";
    folder_.ops().unlink(folder_.descriptor(), fileName_);
    error = file_->commit(fileName_);
  }
  return error == FileError::None ? std::string() : failure(error);
}

std::string OutputFile::failure(FileError error) const {
  return out_.pathOf(name_) + ": " + host::core::fileErrorText(error);
}

}  // namespace gateway::cli
