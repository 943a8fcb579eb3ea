// Filing messages under a folder: quarantine and archive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>

#include "host/core/file_ops.h"
#include "host/core/folder.h"
#include "host/delivery/adapter_error.h"
#include "host/delivery/filing_place.h"
#include "host/delivery/message_effects.h"
#include "host/store/message_index.h"

class OvMsgMailMessage;

namespace host::delivery {

/// What is filed, and how it is to stand in the index.
struct FilingRequest {
  store::MessageKind kind = store::MessageKind::Quarantined;  ///< or Archived
  std::string directory;  ///< the folder to file under; must exist
  std::string area;       ///< name of the area
  std::string rule = {};  ///< id of the rule; may be empty
  std::optional<std::uint32_t> agingDays = {};
  std::size_t maxPathBytes = 0;  ///< the longest path that the caller can take
};

/// Files messages, each with its row in the index. The order is: the file under a temporary name,
/// flushed; renamed; its folder flushed, and the one above each folder that was made for it; then,
/// in one transaction, the row and the mark that the effect is done. Whatever stops before that
/// leaves nothing that counts: at worst, after a crash, a file without a row (see filing_sweep.h).
/// Folders get mode 0700, files 0600. Safe from any thread; several processes may file under one
/// folder.
class KAVI_API Filing {
 public:
  /// Both must outlive this object.
  Filing(store::MessageIndex& index, core::FileOps& ops) : index_(index), ops_(ops) {}

  /// Files \p msg as it stands now, unless \p effects knows a copy from an earlier attempt that is
  /// still there.
  /// \param path  receives the copy's absolute path; left as it was on failure.
  /// \param gone  receives where an earlier attempt filed a copy that is not there any more, so
  /// that
  ///   this is another one; empty without such. May be null
  AdapterError file(const FilingRequest& request, OvMsgMailMessage& msg, MessageEffects& effects,
                    std::string& path, std::string* gone = nullptr);

  /// Removes a stored copy and then its row. A file that is gone already is no failure; a folder
  /// that is gone is.
  /// \param fault  receives the words of a failure of the index
  AdapterError remove(const store::IndexEntry& entry, std::string& fault);

 private:
  friend class FilingAttempt;

  /// Opens the folder \p name in \p parent and makes it durable there.
  /// \param path  the folder's whole path
  core::FileError openLevel(const core::Folder& parent, const std::string& name,
                            const std::string& path, core::Folder& level);

  store::MessageIndex& index_;
  core::FileOps& ops_;
  std::mutex mutex_;
  std::unordered_set<std::string>
      durable_;  ///< folders that this process flushed into their parent
};

/// \p directory as an absolute path without "/" at its end; empty for the root folder.
/// \throw std::filesystem::filesystem_error without a current folder
std::string absoluteFolder(const std::string& directory);

/// The two parts of an absolute path: what is before the last "/" and what is behind it.
struct PathParts {
  std::string folder;
  std::string name;
};
PathParts splitPath(const std::string& path);

}  // namespace host::delivery
