// The folder that `kavi run` writes its results into.
//
// What a run writes there it records, in the file ".kavi-outputs". The next run removes what is
// recorded before it begins, so that results of different runs never mix, and replaces nothing
// else.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/cli/inputs.h"
#include "host/core/atomic_file.h"
#include "host/core/file_error.h"
#include "host/core/folder.h"
#include "library/platform/ov_msg_mail_message.h"

namespace gateway::cli {

/// Names at the top of the folder that the recording adapter and the folder itself use.
const std::vector<std::string>& adapterNames();

/// What the results in an output folder are.
enum class OutputUse {
  Preview,  ///< shown to somebody
  Mail,     ///< mail that goes on: it is written durably, and removed only to be written anew
};

class OutputFolder {
 public:
  /// \param path    made when it is missing
  /// \param inputs  borrowed
  OutputFolder(std::string path, const Inputs& inputs, OutputUse use = OutputUse::Preview);
  ~OutputFolder();
  OutputFolder(const OutputFolder&) = delete;
  OutputFolder& operator=(const OutputFolder&) = delete;

  /// A result that would replace an input; empty when there is none.
  std::string inputInTheWay() const;

  /// Makes the folder, removes what an earlier run recorded (of mail, what this run writes anew),
  /// and keeps other runs out while this object lives.
  /// \return an error text, empty for success; then nothing may be written, and nothing that an
  ///   earlier run did not record was touched.
  std::string begin();

  /// Records that \p name was written. Safe from several threads. \return as for `begin`.
  std::string record(const std::string& name) const;

  /// Forgets what this run wrote: no later run removes or replaces it. \return as for `begin`.
  std::string release();

  bool isMail() const { return use_ == OutputUse::Mail; }
  const std::string& path() const { return path_; }
  std::string pathOf(const std::string& name) const { return path_ + "/" + name; }
  bool isInput(const std::string& name) const { return inputs_.isInput(pathOf(name)); }

 private:
  std::vector<std::string> wanted() const;
  std::string strangerInTheWay(const std::vector<std::string>& recorded) const;
  std::string removeRecorded(const std::vector<std::string>& recorded) const;

  std::string path_;
  const Inputs& inputs_;
  OutputUse use_;
  std::vector<std::string> kept_;  ///< recorded by earlier runs, and not this run's to write
  int record_ = -1;                ///< the file of records, open and locked
};

/// One result: written under a temporary name, there whole once committed. It replaces nothing.
class OutputFile final : public OvMsgSink {
 public:
  /// \param folder  borrowed
  /// \param name    relative to the folder; folders in it are made
  OutputFile(const OutputFolder& folder, const std::string& name);
  ~OutputFile();

  bool write(const char* data, std::size_t size) override;
  /// \return an error text, empty for success; then the file is there and recorded.
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
