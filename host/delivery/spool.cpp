#include "host/delivery/spool.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include "host/core/atomic_file.h"
#include "host/core/line_file.h"
#include "host/core/unique_id.h"
#include "host/delivery/adapter_guard.h"
#include "host/delivery/message_file.h"
#include "library/platform/ov_msg_mail_message.h"

namespace host::delivery {

namespace {

constexpr std::string_view kSuffix = ".msg";
constexpr std::string_view kLogSuffix = ".log";
constexpr std::size_t kMaxIdBytes = 36;
constexpr std::size_t kPieceBytes = std::size_t{16} << 10;

std::string logNameOf(const std::string& id) { return id + std::string(kLogSuffix); }

// Ids become file names: only what `put` makes is one.
bool isId(std::string_view id) {
  return !id.empty() && id.size() <= kMaxIdBytes && std::all_of(id.begin(), id.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z');
  });
}

// The id in a file name; empty when there is none.
std::string_view idIn(std::string_view name, std::string_view suffix) {
  if (!name.ends_with(suffix)) return {};
  const std::string_view stem = name.substr(0, name.size() - suffix.size());
  return isId(stem) ? stem : std::string_view();
}

AdapterError missingIsNotFound(core::FileError error) {
  return error == core::FileError::MissingFolder ? AdapterError::NotFound : adapterErrorOf(error);
}

}  // namespace

AdapterError Spool::open(const std::string& path) {
  return guardedOutcome([&] {
    core::FileError error = folder_.open(path, true);
    std::size_t removed = 0;
    if (error == core::FileError::None) error = core::sweepTemporaries(folder_, removed);
    if (error == core::FileError::None) error = removeOrphans();
    return adapterErrorOf(error);
  });
}

AdapterError Spool::put(SpoolEntry entry, const OvMsgMailMessage& msg, std::string& id) {
  return guardedOutcome([&] {
    std::string made = newId();
    const AdapterError outcome = putAs(made, std::move(entry), msg);
    if (outcome == AdapterError::None) id.swap(made);
    return outcome;
  });
}

AdapterError Spool::putAs(const std::string& id, SpoolEntry entry, const OvMsgMailMessage& msg,
                          FiledEntry* filed) {
  return guardedOutcome([&] {
    if (!folder_.isOpen()) return AdapterError::MissingFolder;
    return isId(id) ? store(entry, msg, fileNameOf(id), filed) : AdapterError::InvalidArgument;
  });
}

std::string Spool::fileNameOf(const std::string& id) { return id + std::string(kSuffix); }

std::string Spool::idOf(const std::string& fileName) {
  return std::string(idIn(fileName, kSuffix));
}

std::string Spool::newId() { return core::makeUniqueId(); }

AdapterError Spool::store(SpoolEntry& entry, const OvMsgMailMessage& msg, const std::string& name,
                          FiledEntry* filed) {
  const char* messageId = msg.id();
  entry.messageId = messageId != nullptr ? messageId : "";
  entry.messageBytes = msg.renderedSize();
  entry.envelope = readEnvelope(msg);
  if (!entry.window.isValid()) return AdapterError::InvalidArgument;
  const std::string head = writeSpoolHead(entry);
  // What could not be read again must not be written.
  if (head.size() > kMaxSpoolHeadBytes || entry.messageBytes > kMaxEntryBytes - head.size()) {
    return AdapterError::InvalidArgument;
  }
  core::AtomicFile file(folder_, core::Durability::Flushed);
  core::FileError error = file.create();
  if (error == core::FileError::None) error = file.write(head.data(), head.size());
  if (error != core::FileError::None) return adapterErrorOf(error);
  std::size_t written = 0;
  const AdapterError outcome = writeMessage(msg, file, written);
  if (outcome != AdapterError::None) return outcome;
  if (written != entry.messageBytes) return AdapterError::MessageUnreadable;
  error = file.commit(name, filed == nullptr ? nullptr : &filed->hold);
  if (error != core::FileError::None && !isMissing(name)) return AdapterError::Uncertain;
  if (error == core::FileError::None && filed != nullptr) filed->entry = std::move(entry);
  return adapterErrorOf(error);
}

bool Spool::isMissing(const std::string& name) const {
  core::FileOps& ops = folder_.ops();
  return core::Descriptor(ops, ops.openFile(folder_.descriptor(), name, O_RDONLY)).get() == -ENOENT;
}

AdapterError Spool::list(std::vector<std::string>& ids) const {
  return guardedOutcome([&] {
    if (!folder_.isOpen()) return AdapterError::MissingFolder;
    std::vector<std::string> names;
    const core::FileError error = folder_.list(names);
    if (error != core::FileError::None) return adapterErrorOf(error);
    std::vector<std::string> found;
    for (const std::string& name : names) {
      const std::string_view id = idIn(name, kSuffix);
      if (!id.empty()) found.emplace_back(id);
    }
    ids.swap(found);
    return AdapterError::None;
  });
}

AdapterError Spool::read(const std::string& id, SpoolEntry& entry, std::string& message) const {
  return guardedOutcome([&] {
    if (!folder_.isOpen()) return AdapterError::MissingFolder;
    if (!isId(id)) return AdapterError::NotFound;
    std::string file;
    const core::FileError error = folder_.read(fileNameOf(id), kMaxEntryBytes, file);
    if (error != core::FileError::None) return missingIsNotFound(error);
    SpoolEntry found;
    std::string_view body;
    if (!parseSpoolFile(file, found, body)) return AdapterError::Damaged;
    file.erase(0, file.size() - body.size());
    entry = std::move(found);
    message.swap(file);
    return AdapterError::None;
  });
}

AdapterError Spool::readHead(const std::string& id, SpoolEntry& entry) const {
  return guardedOutcome([&] {
    if (!folder_.isOpen()) return AdapterError::MissingFolder;
    if (!isId(id)) return AdapterError::NotFound;
    core::FileOps& ops = folder_.ops();
    const core::Descriptor file(ops, ops.openFile(folder_.descriptor(), fileNameOf(id), O_RDONLY));
    if (!file.isOpen()) return missingIsNotFound(core::fileErrorOf(-file.get()));
    std::string head;
    while (head.find('\n', head.size() - std::min(head.size(), kPieceBytes)) == std::string::npos &&
           head.size() < kMaxSpoolHeadBytes) {
      const std::size_t had = head.size();
      head.resize(had + kPieceBytes);
      const ssize_t got = ops.read(file.get(), head.data() + had, kPieceBytes);
      if (got < 0) return adapterErrorOf(core::fileErrorOf(static_cast<int>(-got)));
      head.resize(had + static_cast<std::size_t>(got));
      if (got == 0) break;
    }
    SpoolEntry found;
    std::size_t headBytes = 0;
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) return adapterErrorOf(core::fileErrorOf(errno));
    if (!parseSpoolHead(head, found, headBytes)) return AdapterError::Damaged;
    if (static_cast<std::uint64_t>(status.st_size) != headBytes + found.messageBytes) {
      return AdapterError::Damaged;
    }
    entry = std::move(found);
    return AdapterError::None;
  });
}

AdapterError Spool::remove(const std::string& id) {
  return guardedOutcome([&] {
    if (!folder_.isOpen()) return AdapterError::MissingFolder;
    if (!isId(id)) return AdapterError::NotFound;
    const std::string log = logNameOf(id);
    core::FileOps& ops = folder_.ops();
    const int removed = ops.unlink(folder_.descriptor(), fileNameOf(id));
    if (removed < 0 && removed != -ENOENT) return adapterErrorOf(core::fileErrorOf(-removed));
    // One that is gone may be so for want of a power cut only.
    const core::FileError flushed = folder_.sync();
    if (flushed != core::FileError::None) return adapterErrorOf(flushed);
    // A log that stays behind is harmless; `open` takes it away.
    ops.unlink(folder_.descriptor(), log);
    return removed < 0 ? AdapterError::NotFound : AdapterError::None;
  });
}

AdapterError Spool::hold(const std::string& id, core::Descriptor& hold) const {
  return guardedOutcome([&] {
    if (!folder_.isOpen()) return AdapterError::MissingFolder;
    if (!isId(id)) return AdapterError::NotFound;
    core::FileOps& ops = folder_.ops();
    const std::string name = fileNameOf(id);
    core::Descriptor file(ops, ops.openFile(folder_.descriptor(), name, O_RDONLY));
    if (!file.isOpen()) return missingIsNotFound(core::fileErrorOf(-file.get()));
    const int locked = ops.lock(file.get(), false);
    if (locked == -EWOULDBLOCK) return AdapterError::UnderWay;
    if (locked < 0) return adapterErrorOf(core::fileErrorOf(-locked));
    // Whoever held it before may have removed it meanwhile; ids are never used again.
    const core::Descriptor again(ops, ops.openFile(folder_.descriptor(), name, O_RDONLY));
    if (!again.isOpen()) return missingIsNotFound(core::fileErrorOf(-again.get()));
    hold = std::move(file);
    return AdapterError::None;
  });
}

AdapterError Spool::readLog(const std::string& id, std::string& log) const {
  return guardedOutcome([&] {
    if (!folder_.isOpen()) return AdapterError::MissingFolder;
    if (!isId(id)) return AdapterError::NotFound;
    std::string text;
    const core::FileError error = folder_.read(logNameOf(id), kMaxLogBytes, text);
    if (error == core::FileError::MissingFolder) text.clear();
    if (error != core::FileError::None && error != core::FileError::MissingFolder) {
      return adapterErrorOf(error);
    }
    log.swap(text);
    return AdapterError::None;
  });
}

AdapterError Spool::appendLog(const std::string& id, std::string_view line) {
  return guardedOutcome([&] {
    if (!folder_.isOpen()) return AdapterError::MissingFolder;
    if (!isId(id)) return AdapterError::NotFound;
    return adapterErrorOf(
        core::appendLine(folder_, logNameOf(id), line, core::Durability::Flushed));
  });
}

core::FileError Spool::removeOrphans() const {
  std::vector<std::string> names;
  const core::FileError error = folder_.list(names);
  if (error != core::FileError::None) return error;
  core::FileOps& ops = folder_.ops();
  bool isFlushed = false;
  for (const std::string& name : names) {
    const std::string id(idIn(name, kLogSuffix));
    if (id.empty()) continue;
    // Looked for now and not in the list: the entry may have been filed while the list was read.
    if (!isMissing(fileNameOf(id))) continue;
    // A log may say that its entry was sent: it must not go for good before that does.
    if (!isFlushed && folder_.sync() != core::FileError::None) return core::FileError::None;
    isFlushed = true;
    ops.unlink(folder_.descriptor(), name);
  }
  return core::FileError::None;
}

}  // namespace host::delivery
