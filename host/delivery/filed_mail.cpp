#include "host/delivery/filed_mail.h"

#include <fcntl.h>

#include <cerrno>
#include <set>
#include <utility>
#include <vector>

#include "host/core/folder.h"
#include "host/delivery/adapter_guard.h"
#include "host/delivery/outbox.h"
#include "host/delivery/reprocess_fields.h"
#include "host/message/message.h"

namespace host::delivery {

namespace {

constexpr std::size_t kPurgeBatch = 200;

bool namesOneRule(std::string_view message) {
  const DividedMail mail(message);
  return mail.values(kReprocessRules).size() == 1 && mail.values(kReprocessType).size() == 1;
}

}  // namespace

AdapterError FiledMail::read(const store::IndexEntry& entry, std::string& message) const {
  return guardedOutcome([&] {
    const PathParts parts = splitPath(entry.path);
    core::Folder folder;
    core::FileError error = folder.open(parts.folder, false);
    if (error != core::FileError::None) return adapterErrorOf(error);
    error = folder.read(parts.name, Spool::kMaxEntryBytes, message);
    return error == core::FileError::MissingFolder ? AdapterError::NotFound : adapterErrorOf(error);
  });
}

// The lock of the file ends with its process. What was opened may be gone by the time it is locked,
// or its name be another copy's: the row tells.
AdapterError FiledMail::hold(const store::IndexEntry& entry, core::Descriptor& hold,
                             std::string& fault) const {
  if (state_.store() == nullptr) return AdapterError::MissingFolder;
  const PathParts parts = splitPath(entry.path);
  core::Folder folder;
  const core::FileError error = folder.open(parts.folder, false);
  if (error != core::FileError::None) return adapterErrorOf(error);
  core::FileOps& ops = folder.ops();
  core::Descriptor file(ops, ops.openFile(folder.descriptor(), parts.name, O_RDONLY));
  if (file.get() == -ENOENT) return AdapterError::NotFound;
  if (!file.isOpen()) return adapterErrorOf(core::fileErrorOf(-file.get()));
  const int locked = ops.lock(file.get(), false);
  if (locked == -EWOULDBLOCK) return AdapterError::UnderWay;
  if (locked < 0) return adapterErrorOf(core::fileErrorOf(-locked));
  store::IndexEntry present;
  const store::StoreStatus status = state_.store()->findEntry(entry.row, present);
  if (status.ok() && present.path != entry.path) return AdapterError::NotFound;
  if (!status.ok() && status.error != store::StoreError::NotFound) fault = status.text;
  if (status.ok()) hold = std::move(file);
  return adapterErrorOf(status.error);
}

AdapterError FiledMail::release(const store::IndexEntry& entry, const ReleaseOrder& order,
                                ReleaseReport& report) {
  report = {};
  return guardedOutcome([&] {
    core::Descriptor held;
    AdapterError error = hold(entry, held, report.fault);
    if (error == AdapterError::None) error = queue(entry, order, report);
    if (error != AdapterError::None || order.isKept) return error;
    return state_.filing() == nullptr ? AdapterError::MissingFolder
                                      : state_.filing()->remove(entry, report.fault);
  });
}

AdapterError FiledMail::queue(const store::IndexEntry& entry, const ReleaseOrder& order,
                              ReleaseReport& report) {
  return guardedOutcome([&] {
    std::string bytes;
    const AdapterError error = read(entry, bytes);
    if (error != AdapterError::None) return error;
    const bool all = !order.isUnscanned && !namesOneRule(bytes);
    const auto message = message::Message::parse(message::Buffer::adopt(std::move(bytes)));
    message->setEnvelope({order.envelope.sender, order.envelope.recipients, {}});
    Outbox outbox(state_.spool(), &settings_, log_);
    SpoolEntry released;
    released.kind = order.isUnscanned ? kDeliveredKind : kResentKind;
    released.window = kAnyTime;
    const AdapterError queued = outbox.file(std::move(released), *message, {Spool::newId(), {}});
    report.isQueued = queued == AdapterError::None;
    report.scannedAgain = report.isQueued && all;
    return queued;
  });
}

AdapterError FiledMail::remove(const store::IndexEntry& entry, std::string& fault) {
  return guardedOutcome([&] {
    if (state_.filing() == nullptr) return AdapterError::MissingFolder;
    core::Descriptor held;
    std::string words;
    const AdapterError error = hold(entry, held, words);
    if (error == AdapterError::UnderWay) return error;
    // Whatever else keeps a hold from being taken is met again, or, as a file that is gone, none.
    return state_.filing()->remove(entry, fault);
  });
}

// One purge: batch by batch, so that a full index takes no memory.
class FiledMail::Purge {
 public:
  Purge(FiledMail& mail, const PurgeOrder& order, PurgeReport& report)
      : mail_(mail), order_(order), report_(report) {}

  AdapterError run(const std::stop_token& stop, std::string& fault) {
    std::vector<store::IndexEntry> due;
    std::size_t limit = 0;
    do {
      // Those that stay come first every time.
      limit = kPurgeBatch + passed_.size();
      const store::StoreStatus status = mail_.state_.store()->listExpired(order_.now, limit, due);
      if (!status.ok()) {
        fault = status.text;
        return adapterErrorOf(status.error);
      }
      for (const store::IndexEntry& entry : due) {
        if (stop.stop_requested()) return AdapterError::None;
        if (!passed_.contains(entry.row)) visit(entry);
      }
    } while (due.size() == limit);
    return AdapterError::None;
  }

 private:
  void visit(const store::IndexEntry& entry) {
    if (order_.kind && entry.kind != *order_.kind) {
      passed_.insert(entry.row);
      return;
    }
    std::string words;
    const AdapterError error = mail_.remove(entry, words);
    if (error == AdapterError::None) {
      ++report_.removed;
      return;
    }
    passed_.insert(entry.row);
    if (error == AdapterError::UnderWay) return;
    ++report_.kept;
    if (!report_.firstFault.empty()) return;
    report_.firstFault = entry.path + ": " + adapterErrorText(static_cast<unsigned int>(error)) +
                         (words.empty() ? "" : ": " + words);
  }

  FiledMail& mail_;
  const PurgeOrder& order_;
  PurgeReport& report_;
  std::set<std::int64_t> passed_;  ///< that stay
};

AdapterError FiledMail::purge(const PurgeOrder& order, const std::stop_token& stop,
                              PurgeReport& report, std::string& fault) {
  return guardedOutcome([&] {
    if (state_.store() == nullptr) return AdapterError::MissingFolder;
    return Purge(*this, order, report).run(stop, fault);
  });
}

}  // namespace host::delivery
