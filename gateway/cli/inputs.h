// The messages that a command line names.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "host/message/buffer.h"

namespace gateway::cli {

/// A file to read, or standard input.
struct InputFile {
  std::string path;        ///< "-" for standard input
  std::string outputName;  ///< relative, unique among all inputs
  bool regular = true;     ///< false: can be read once only, so nobody looks at it beforehand
};

/// An input that cannot be read.
struct InputFault {
  std::string path;
  std::string reason;
};

/// What was left out below a folder: nobody named it, and it may be no message.
struct LeftOut {
  std::string folder;
  std::size_t hidden = 0;   ///< hidden files, and folders with all that is in them
  std::size_t special = 0;  ///< pipes, sockets, devices, dangling links
  std::string first;        ///< the path of one of them
};

/// Gives every input a name under the output folder: its own, with a number when that is taken.
class OutputNames {
 public:
  /// \param reserved  names at the top of the folder that somebody else uses
  explicit OutputNames(const std::vector<std::string>& reserved);

  /// \param wanted  a relative path without "." and ".."
  std::string reserve(const std::string& wanted);

 private:
  bool isFree(const std::string& name) const;
  unsigned int& nextNumber(const std::string& name);

  std::unordered_set<std::string> files_;
  std::unordered_set<std::string> folders_;
  std::unordered_map<std::string, unsigned int> next_;  ///< number to try for a name
};

/// The files that the arguments of a command name.
class Inputs {
 public:
  /// Collects the files behind \p arguments: files, folders (all files below them but hidden ones,
  /// ordered by name) and "-".
  /// \param outFolder  left out when it lies in one of the folders; empty for none
  /// \param reserved   as for OutputNames
  static Inputs collect(const std::vector<std::string>& arguments, const std::string& outFolder,
                        const std::vector<std::string>& reserved);

  const std::vector<InputFile>& files() const { return files_; }
  const std::vector<InputFault>& faults() const { return faults_; }
  /// Folders of which something was left out.
  const std::vector<LeftOut>& leftOut() const { return leftOut_; }
  /// Counts the file \p path, if there is one, among those that no result may replace.
  void protect(const std::string& path);
  /// Whether \p path is one of the inputs or protected, by whatever name.
  bool isInput(const std::string& path) const;

 private:
  void add(const std::string& path, const std::string& wanted, OutputNames& names);
  void addFolder(const std::string& folder, const std::string& outFolder, OutputNames& names);

  std::vector<InputFile> files_;
  std::vector<InputFault> faults_;
  std::vector<LeftOut> leftOut_;
  std::set<std::pair<dev_t, ino_t>> identities_;
};

/// One message to run.
struct InputMessage {
  const InputFile* file = nullptr;
  std::size_t number = 0;  ///< of the message in its mbox, counted from 1; 0 for a file of its own
  std::shared_ptr<const host::message::Buffer> bytes;  ///< null: read `file` when its turn comes
  std::string separator;                               ///< what stands behind it in its mbox
  std::string error;                                   ///< why there are no bytes
};

/// Hands the messages of \p inputs to \p take, in order. Messages of an mbox come with their bytes,
/// those of a file of its own without.
/// \param take  false to stop
void forEachMessage(const Inputs& inputs, const std::function<bool(InputMessage)>& take);

}  // namespace gateway::cli
