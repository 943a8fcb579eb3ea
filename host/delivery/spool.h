// Messages that wait on disk.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/core/folder.h"
#include "host/delivery/adapter_error.h"
#include "host/delivery/spool_entry.h"

class OvMsgMailMessage;

namespace host::delivery {

/// An entry that was just filed.
struct FiledEntry {
  core::Descriptor hold;  ///< taken before anybody could see it (see Spool::hold)
  SpoolEntry entry;       ///< as it was written
};

/// A folder with one file for each waiting message, "<id>.msg" (see SpoolEntry), and beside it,
/// once something was tried, "<id>.log" with what came of it (see SpoolState). An entry is
/// written under a temporary name, flushed, renamed, and the folder flushed: after `put` succeeded
/// it survives a power cut, and a crash at any point leaves a whole entry or a temporary file that
/// nothing counts as one. Open once; then every operation may run on several threads, and several
/// processes may share the folder.
class KAVI_API Spool {
 public:
  /// The largest entry that `read` takes, in bytes.
  static constexpr std::size_t kMaxEntryBytes = std::size_t{2} << 30;
  /// The largest log that is read, in bytes.
  static constexpr std::size_t kMaxLogBytes = std::size_t{64} << 20;

  explicit Spool(core::FileOps& ops = core::FileOps::system()) : folder_(ops) {}

  /// Opens the folder \p path, made with mode 0700 when it is missing, and removes what crashed
  /// writers left in it, logs without their entry included.
  AdapterError open(const std::string& path);

  /// Files \p msg as it stands now. The entry's messageId, messageBytes and envelope are taken
  /// from the message.
  /// \param id  receives the new entry's id; left as it was on failure, when nothing is stored.
  /// \return Uncertain when the file may be there all the same, and will be sent then.
  AdapterError put(SpoolEntry entry, const OvMsgMailMessage& msg, std::string& id);
  /// The same under an id that the caller had from `newId`, once.
  /// \param filed  receives the entry; may be null
  AdapterError putAs(const std::string& id, SpoolEntry entry, const OvMsgMailMessage& msg,
                     FiledEntry* filed = nullptr);
  /// An id for an entry; no two are the same. \throw std::system_error without randomness
  static std::string newId();

  /// Replaces \p ids by those of the waiting entries, the oldest first.
  AdapterError list(std::vector<std::string>& ids) const;

  /// Reads an entry. NotFound when there is none under \p id, Damaged when its file is not whole;
  /// the outputs are then as they were.
  AdapterError read(const std::string& id, SpoolEntry& entry, std::string& message) const;

  /// The same without the message: takes time for the head only.
  AdapterError readHead(const std::string& id, SpoolEntry& entry) const;

  /// Removes an entry for good, its log too. NotFound when there is none, which is flushed then:
  /// after another failure the entry may be gone, but for a power cut.
  AdapterError remove(const std::string& id);

  /// Makes the caller the only one to work at an entry as long as \p hold lives; other processes
  /// included. UnderWay when somebody else does, NotFound when there is no such entry any more.
  AdapterError hold(const std::string& id, core::Descriptor& hold) const;

  /// The log of an entry; empty when there is none.
  AdapterError readLog(const std::string& id, std::string& log) const;
  /// Adds a line to the log of an entry, durably. \param line  without line break
  AdapterError appendLog(const std::string& id, std::string_view line);

  /// The name of an entry's file in the folder.
  static std::string fileNameOf(const std::string& id);
  /// The id of the entry whose file has the name \p fileName; empty when it is no entry's.
  static std::string idOf(const std::string& fileName);

 private:
  AdapterError store(SpoolEntry& entry, const OvMsgMailMessage& msg, const std::string& name,
                     FiledEntry* filed);
  core::FileError removeOrphans() const;
  /// Whether there is known to be no such file.
  bool isMissing(const std::string& name) const;

  core::Folder folder_;
};

}  // namespace host::delivery
