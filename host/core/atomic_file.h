// Files that are there whole, or not at all.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "host/core/file_error.h"
#include "host/core/file_ops.h"
#include "host/core/folder.h"

namespace host::core {

enum class Durability {
  Flushed,   ///< survives a power cut: file and folder are flushed before success is reported
  Buffered,  ///< whole, but the system writes it when it likes
};

/// One new file: written under a temporary name in its folder, then renamed. Whoever lists the
/// folder sees all of it or none; without `commit` nothing remains. While the file is open it is
/// locked, which tells a temporary file in use from one that a crash left (`sweepTemporaries`).
/// One thread at a time.
///
/// A process that limits its file sizes (RLIMIT_FSIZE) must ignore SIGXFSZ to get DiskFull.
class KAVI_API AtomicFile {
 public:
  /// \param folder  open; must outlive this object.
  AtomicFile(const Folder& folder, Durability durability);
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  /// Starts the file (mode 0600). Comes first, once.
  FileError create();

  /// Appends bytes. After an error every further call answers that error.
  FileError write(const char* data, std::size_t size);

  /// Gives the file its name. On success it is there; on failure nothing of it is, but with
  /// Exists (the name is taken), when another name can be tried.
  /// \param locked  receives the file, still locked; may be null
  FileError commit(const std::string& name, Descriptor* locked = nullptr);

 private:
  FileError flush();
  FileError fail(int result);
  void discard();

  const Folder& folder_;
  Durability durability_;
  std::string temporary_;  ///< name while the file has no other; empty before and after
  Descriptor file_;
  std::string buffer_;
  FileError error_ = FileError::None;
  bool flushed_ = false;
};

/// Whether \p name is one that AtomicFile gives to unfinished files.
KAVI_API bool isTemporaryName(std::string_view name);

/// Removes the unfinished files that crashed writers left in \p folder. Those being written stay,
/// and so does what is younger than a minute: a writer may not have locked it yet.
/// \param removed  receives how many went.
KAVI_API FileError sweepTemporaries(const Folder& folder, std::size_t& removed);

}  // namespace host::core
