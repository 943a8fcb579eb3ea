// The folder that `kavi run` writes its results into.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "gateway/cli/inputs.h"
#include "host/core/atomic_file.h"
#include "host/core/file_error.h"
#include "host/core/folder.h"
#include "library/platform/ov_msg_mail_message.h"

namespace gateway::cli {

/// Names at the top of the folder that the recording adapter uses.
const std::vector<std::string>& adapterNames();

class OutputFolder {
 public:
  /// \param path    made when it is missing
  /// \param inputs  borrowed
  OutputFolder(std::string path, const Inputs& inputs);

  /// A result that would replace an input; empty when there is none.
  std::string inputInTheWay() const;

  /// Removes the result of an earlier run. \return an error text, empty for success.
  std::string remove(const std::string& name) const;

  const std::string& path() const { return path_; }
  std::string pathOf(const std::string& name) const { return path_ + "/" + name; }
  bool isInput(const std::string& name) const { return inputs_.isInput(pathOf(name)); }

 private:
  std::string path_;
  const Inputs& inputs_;
};

/// One result: written under a temporary name, there whole once committed. A file of an earlier run
/// is replaced, an input never.
class OutputFile final : public OvMsgSink {
 public:
  /// \param folder  borrowed
  /// \param name    relative to the folder; folders in it are made
  OutputFile(const OutputFolder& folder, const std::string& name);
  ~OutputFile();

  bool write(const char* data, std::size_t size) override;
  /// \return an error text, empty for success; then the file is there.
  std::string commit();

 private:
  std::string failure(host::core::FileError error) const;

  const OutputFolder& out_;
  std::string name_;
  std::string fileName_;
  host::core::Folder folder_;
  std::optional<host::core::AtomicFile> file_;
  host::core::FileError error_ = host::core::FileError::None;
};

}  // namespace gateway::cli
