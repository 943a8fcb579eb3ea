// An open folder to keep files in.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/core/file_error.h"
#include "host/core/file_ops.h"

namespace host::core {

/// An open folder; everything in it is reached through its descriptor, so that renaming it, or
/// putting a link in its way, changes nothing for whoever has it open.
class KAVI_API Folder {
 public:
  explicit Folder(FileOps& ops = FileOps::system()) : ops_(&ops) {}

  /// Opens \p path. \param create  makes it, and what is missing above it, with mode 0700.
  FileError open(const std::string& path, bool create);

  /// Opens the folder \p name in \p parent, made with mode 0700 when it is missing. A symbolic
  /// link under that name is refused. A new one is durable once \p parent was flushed.
  /// \param made  receives whether it was made; may be null.
  FileError openIn(const Folder& parent, const std::string& name, bool* made = nullptr);

  /// Makes the entries of the folder durable.
  FileError sync() const;

  /// Replaces \p names by the names in the folder, "." and ".." left out, sorted.
  FileError list(std::vector<std::string>& names) const;

  /// Reads the regular file \p name whole into \p bytes. One of more than \p limit bytes makes
  /// InputOutput, a missing one MissingFolder.
  FileError read(const std::string& name, std::size_t limit, std::string& bytes) const;

  /// Removes the file \p name, durably. MissingFolder when there is none.
  FileError remove(const std::string& name) const;

  bool isOpen() const { return descriptor_.isOpen(); }
  int descriptor() const { return descriptor_.get(); }
  FileOps& ops() const { return *ops_; }

 private:
  FileOps* ops_;
  Descriptor descriptor_;
};

}  // namespace host::core
