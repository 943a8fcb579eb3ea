#include "host/delivery/filing.h"

#include <fcntl.h>

#include <cerrno>
#include <filesystem>
#include <utility>
#include <vector>

#include "host/core/atomic_file.h"
#include "host/core/guard.h"
#include "host/delivery/index_subject.h"
#include "host/delivery/message_file.h"
#include "library/platform/ov_msg_mail_message.h"

namespace host::delivery {

namespace {

constexpr unsigned int kMaxCopies = 1000;  // of one message, in one folder
constexpr std::size_t kDurableFolders = 4096;

const char* operationOf(store::MessageKind kind) {
  return kind == store::MessageKind::Archived ? "archive" : "quarantine";
}

// 0 if the file is there, -ENOENT if it is not, or why that cannot be said.
int lookFor(core::FileOps& ops, int folder, const std::string& name) {
  const core::Descriptor file(ops, ops.openFile(folder, name, O_RDONLY));
  return file.isOpen() ? 0 : file.get();
}

}  // namespace

std::string absoluteFolder(const std::string& directory) {
  std::string path = directory;
  if (path.empty() || path.front() != '/') {
    path = std::filesystem::current_path().string() + "/" + path;
  }
  while (!path.empty() && path.back() == '/') path.pop_back();
  return path;
}

PathParts splitPath(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {".", path};
  return {path.substr(0, slash == 0 ? 1 : slash), path.substr(slash + 1)};
}

// One message on its way into the folder.
class FilingAttempt {
 public:
  FilingAttempt(Filing& filing, const FilingRequest& request, OvMsgMailMessage& msg,
                MessageEffects& effects)
      : filing_(filing), request_(request), msg_(msg), effects_(effects), folder_(filing.ops_) {}

  AdapterError run(std::string& path, std::string* gone) {
    AdapterError outcome = locate();
    if (outcome == AdapterError::None) outcome = openFolders();
    if (outcome == AdapterError::None) outcome = claim();
    if (outcome != AdapterError::None || done_) {
      if (done_) path.swap(path_);
      return outcome;
    }
    outcome = guardedOutcome([this] { return store(); });
    if (outcome == AdapterError::None) {
      path.swap(path_);
      if (gone != nullptr) gone->swap(gone_);
    } else {
      effects_.abandon(ticket_);
    }
    return outcome;
  }

 private:
  AdapterError locate() {
    if (request_.directory.empty()) return AdapterError::InvalidArgument;
    root_ = absoluteFolder(request_.directory);
    const char* text = msg_.id();
    id_ = text != nullptr ? text : "";
    place_ = request_.kind == store::MessageKind::Archived ? archivePlace(request_.area, id_)
                                                           : quarantinePlace(id_);
    return setNumber(1);
  }

  AdapterError setNumber(unsigned int number) {
    number_ = number;
    name_ = place_.fileName(number);
    path_ = root_ + place_.folderPath() + "/" + name_;
    return path_.size() > request_.maxPathBytes ? AdapterError::PathTooLong : AdapterError::None;
  }

  AdapterError openFolders() {
    core::FileError error = folder_.open(root_.empty() ? "/" : root_, false);
    std::string path = root_;
    for (const std::string& name : place_.folders) {
      if (error != core::FileError::None) break;
      path += "/" + name;
      core::Folder level(filing_.ops_);
      error = filing_.openLevel(folder_, name, path, level);
      folder_ = std::move(level);
    }
    return adapterErrorOf(error);
  }

  // Writes down in the ledger what is going to happen, and where.
  AdapterError claim() {
    AdapterError outcome = takeFreeNumber();
    if (outcome != AdapterError::None) return outcome;
    outcome = effects_.begin(operationOf(request_.kind), kShortLeaseSeconds, path_, ticket_);
    if (outcome != AdapterError::None) return outcome;
    if (ticket_.isDone()) {
      outcome = reuse();
      if (outcome != AdapterError::None || done_) return outcome;
      gone_ = ticket_.answer.result;
      outcome = effects_.beginAnew(kShortLeaseSeconds, path_, ticket_);
      if (outcome != AdapterError::None) return outcome;
    }
    return ticket_.isTakenOver() ? removeLeftOver() : AdapterError::None;
  }

  // The ledger has to name a place that is no other copy's.
  AdapterError takeFreeNumber() {
    for (unsigned int number = number_; number <= kMaxCopies; ++number) {
      const AdapterError outcome = setNumber(number);
      if (outcome != AdapterError::None) return outcome;
      const int found = lookFor(filing_.ops_, folder_.descriptor(), name_);
      if (found == -ENOENT) return AdapterError::None;
      if (found < 0 && found != -EACCES && found != -ELOOP) {
        return adapterErrorOf(core::fileErrorOf(-found));
      }
    }
    return AdapterError::NameTaken;
  }

  // Takes the copy of an earlier attempt, if it is still there.
  AdapterError reuse() {
    const std::string& earlier = ticket_.answer.result;
    const PathParts parts = splitPath(earlier);
    core::Folder folder(filing_.ops_);
    const core::FileError error = folder.open(parts.folder, false);
    if (error == core::FileError::MissingFolder) return AdapterError::None;
    if (error != core::FileError::None) return adapterErrorOf(error);
    const int found = lookFor(filing_.ops_, folder.descriptor(), parts.name);
    if (found == -ENOENT) return AdapterError::None;
    if (found < 0) return adapterErrorOf(core::fileErrorOf(-found));
    if (earlier.size() > request_.maxPathBytes) return AdapterError::PathTooLong;
    path_ = earlier;
    done_ = true;
    return AdapterError::None;
  }

  // An earlier attempt was killed between its file and its row. It never reported success, so its
  // file is nobody's message. Should that attempt be alive after all, it finds its claim gone.
  AdapterError removeLeftOver() {
    const std::string& earlier = ticket_.answer.result;
    store::IndexEntry entry;
    const store::StoreStatus status = filing_.index_.findPath(earlier, entry);
    if (status.ok()) return AdapterError::None;
    AdapterError outcome = AdapterError::None;
    if (status.error != store::StoreError::NotFound) {
      outcome = effects_.note(status);
    } else {
      const PathParts parts = splitPath(earlier);
      core::Folder folder(filing_.ops_);
      core::FileError error = folder.open(parts.folder, false);
      if (error == core::FileError::None) error = folder.remove(parts.name);
      if (error != core::FileError::MissingFolder) outcome = adapterErrorOf(error);
    }
    if (outcome != AdapterError::None) effects_.abandon(ticket_);
    return outcome;
  }

  AdapterError store() {
    core::AtomicFile file(folder_, core::Durability::Flushed);
    const core::FileError error = file.create();
    if (error != core::FileError::None) return adapterErrorOf(error);
    std::size_t written = 0;
    AdapterError outcome = writeMessage(msg_, file, written);
    if (outcome != AdapterError::None) return outcome;
    if (written != msg_.renderedSize()) return AdapterError::MessageUnreadable;
    // Made before the file gets its name: nothing but the index can fail behind that.
    store::IndexEntry entry = entryFor(written);
    outcome = commit(file);
    if (outcome != AdapterError::None) return outcome;
    outcome = guardedOutcome([&] { return index(entry); });
    if (outcome != AdapterError::None) takeBack(outcome);
    return outcome;
  }

  AdapterError commit(core::AtomicFile& file) {
    while (true) {
      const core::FileError error = file.commit(name_);
      if (error != core::FileError::Exists) return adapterErrorOf(error);
      if (number_ >= kMaxCopies) return AdapterError::NameTaken;
      const AdapterError outcome = setNumber(number_ + 1);
      if (outcome != AdapterError::None) return outcome;
    }
  }

  store::IndexEntry entryFor(std::size_t size) {
    store::IndexEntry entry;
    entry.kind = request_.kind;
    entry.area = request_.area;
    entry.messageId = id_;
    entry.rule = request_.rule;
    entry.agingDays = request_.agingDays;
    Envelope envelope = readEnvelope(msg_);
    entry.sender = std::move(envelope.sender);
    entry.recipients = std::move(envelope.recipients);
    entry.subject = indexSubject(msg_);
    entry.size = size;
    entry.storedAt = effects_.now();
    return entry;
  }

  AdapterError index(store::IndexEntry& entry) {
    entry.path = path_;
    const auto finishes = effects_.finishes(ticket_, path_);
    std::int64_t row = 0;
    return effects_.note(filing_.index_.addEntry(entry, finishes ? &*finishes : nullptr, row));
  }

  // Without its row the file must not stay. The row goes first, for an index that failed only
  // behind its commit.
  void takeBack(AdapterError outcome) {
    if (outcome == AdapterError::IndexFailed || outcome == AdapterError::IndexUnavailable) {
      core::guardedVoid([&] { static_cast<void>(filing_.index_.removePath(path_)); });
    }
    if (filing_.ops_.unlink(folder_.descriptor(), name_) == 0) {
      static_cast<void>(folder_.sync());
    }
  }

  Filing& filing_;
  const FilingRequest& request_;
  OvMsgMailMessage& msg_;
  MessageEffects& effects_;
  std::string root_;
  std::string id_;
  FilingPlace place_;
  unsigned int number_ = 1;
  std::string name_;
  std::string path_;
  core::Folder folder_;  ///< that the file goes into
  MessageEffects::Ticket ticket_;
  std::string gone_;   ///< where an earlier attempt filed it, if nothing is there now
  bool done_ = false;  ///< by an earlier attempt, at path_
};

core::FileError Filing::openLevel(const core::Folder& parent, const std::string& name,
                                  const std::string& path, core::Folder& level) {
  bool made = false;
  core::FileError error = level.openIn(parent, name, &made);
  if (error != core::FileError::None) return error;
  {
    const std::lock_guard lock(mutex_);
    if (!made && durable_.contains(path)) return error;
  }
  // One that another process made a moment ago, or before a crash, may not be durable yet.
  error = parent.sync();
  if (error != core::FileError::None) return error;
  const std::lock_guard lock(mutex_);
  if (durable_.size() >= kDurableFolders) durable_.clear();
  durable_.insert(path);
  return error;
}

AdapterError Filing::file(const FilingRequest& request, OvMsgMailMessage& msg,
                          MessageEffects& effects, std::string& path, std::string* gone) {
  return guardedOutcome([&] {
    if (gone != nullptr) gone->clear();
    return FilingAttempt(*this, request, msg, effects).run(path, gone);
  });
}

AdapterError Filing::remove(const store::IndexEntry& entry, std::string& fault) {
  return guardedOutcome([&] {
    const PathParts parts = splitPath(entry.path);
    core::Folder folder(ops_);
    // A folder that is missing may be on a disk that is not mounted: its rows stay.
    core::FileError error = folder.open(parts.folder, false);
    if (error != core::FileError::None) return adapterErrorOf(error);
    error = folder.remove(parts.name);
    if (error != core::FileError::None && error != core::FileError::MissingFolder) {
      return adapterErrorOf(error);
    }
    const store::StoreStatus status = index_.removeEntry(entry.row);
    if (status.ok() || status.error == store::StoreError::NotFound) return AdapterError::None;
    fault = status.text;
    return adapterErrorOf(status.error);
  });
}

}  // namespace host::delivery
