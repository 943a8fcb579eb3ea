// Messages that wait on disk.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/core/folder.h"
#include "host/delivery/adapter_error.h"
#include "host/delivery/spool_entry.h"

class OvMsgMailMessage;

namespace host::delivery {

/// A folder with one file for each waiting message, "<id>.msg" (see SpoolEntry). An entry is
/// written under a temporary name, flushed, renamed, and the folder flushed: after `put` succeeded
/// it survives a power cut, and a crash at any point leaves a whole entry or a temporary file that
/// nothing counts as one. Open once; then every operation may run on several threads, and several
/// processes may share the folder.
class KAVI_API Spool {
 public:
  /// The largest entry that `read` takes, in bytes.
  static constexpr std::size_t kMaxEntryBytes = std::size_t{2} << 30;

  explicit Spool(core::FileOps& ops = core::FileOps::system()) : folder_(ops) {}

  /// Opens the folder \p path, made with mode 0700 when it is missing, and removes what crashed
  /// writers left in it.
  AdapterError open(const std::string& path);

  /// Files \p msg as it stands now. The entry's messageId, messageBytes and envelope are taken
  /// from the message.
  /// \param id  receives the new entry's id; left as it was on failure, when nothing is stored.
  AdapterError put(SpoolEntry entry, const OvMsgMailMessage& msg, std::string& id);

  /// Replaces \p ids by those of the waiting entries, the oldest first.
  AdapterError list(std::vector<std::string>& ids) const;

  /// Reads an entry. NotFound when there is none under \p id, Damaged when its file is not whole;
  /// the outputs are then as they were.
  AdapterError read(const std::string& id, SpoolEntry& entry, std::string& message) const;

  /// Removes an entry for good. NotFound when there is none.
  AdapterError remove(const std::string& id);

 private:
  AdapterError store(SpoolEntry& entry, const OvMsgMailMessage& msg, const std::string& name);

  core::Folder folder_;
};

}  // namespace host::delivery
