#include "host/delivery/spool_index.h"

#include <unistd.h>

#include <array>

#include "host/delivery/filing.h"
#include "host/delivery/index_subject.h"
#include "host/delivery/spool.h"

namespace host::delivery {

namespace {

using store::IndexEntry;
using store::StoreStatus;

std::string hostName() {
  std::array<char, 256> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0) return "localhost";
  return name.data();
}

}  // namespace

SpoolIndex::SpoolIndex(store::MessageIndex& index, const std::string& folder)
    : index_(index), folder_(absoluteFolder(folder)), area_(hostName()) {}

StoreStatus SpoolIndex::add(const std::string& id, const SpoolEntry& entry, OvMsgMailMessage& msg,
                            const store::MessageIndex::Finishes* finishes) {
  std::int64_t row = 0;
  return index_.addEntry(rowFor(id, entry, msg), finishes, row);
}

StoreStatus SpoolIndex::addMissing(const std::string& id, const SpoolEntry& entry,
                                   OvMsgMailMessage& msg, bool& added) {
  return index_.addMissing(rowFor(id, entry, msg), added);
}

StoreStatus SpoolIndex::has(const std::string& id, bool& present) {
  IndexEntry row;
  StoreStatus status = index_.findPath(pathOf(id), row);
  const bool missing = status.error == store::StoreError::NotFound;
  if (status.ok() || missing) present = !missing;
  return missing ? StoreStatus{} : status;
}

StoreStatus SpoolIndex::remove(const std::string& id) {
  StoreStatus status = index_.removePath(pathOf(id));
  return status.error == store::StoreError::NotFound ? StoreStatus{} : status;
}

std::string SpoolIndex::pathOf(const std::string& id) const {
  return folder_ + "/" + Spool::fileNameOf(id);
}

std::string SpoolIndex::idIn(const std::string& path) const {
  const PathParts parts = splitPath(path);
  return parts.folder == folder_ ? Spool::idOf(parts.name) : std::string();
}

IndexEntry SpoolIndex::rowFor(const std::string& id, const SpoolEntry& entry,
                              OvMsgMailMessage& msg) const {
  IndexEntry row;
  row.kind = store::MessageKind::Postponed;
  row.area = area_;
  row.messageId = entry.messageId;
  if (entry.rule != 0) row.rule = std::to_string(entry.rule);
  row.sender = entry.envelope.sender;
  row.recipients = entry.envelope.recipients;
  row.subject = indexSubject(msg);
  row.size = entry.messageBytes;
  row.storedAt = entry.queuedAt;
  row.path = pathOf(id);
  return row;
}

}  // namespace host::delivery
