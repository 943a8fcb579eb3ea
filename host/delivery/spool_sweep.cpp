#include "host/delivery/spool_sweep.h"

#include <memory>
#include <vector>

#include "host/delivery/adapter_guard.h"
#include "host/message/message.h"

namespace host::delivery {

namespace {

constexpr std::size_t kPageRows = 500;

}  // namespace

AdapterError SpoolSweep::run(SpoolSweepReport& report, std::string& fault) {
  report = {};
  report_ = &report;
  fault_ = &fault;
  return guardedOutcome([&] {
    const AdapterError outcome = removeRowsWithoutMessage();
    return outcome == AdapterError::None ? addMissingRows() : outcome;
  });
}

AdapterError SpoolSweep::note(const store::StoreStatus& status) {
  if (!status.ok()) *fault_ = status.text;
  return adapterErrorOf(status.error);
}

// Gateways that share an index have spools of their own: only rows of this one count.
AdapterError SpoolSweep::removeRowsWithoutMessage() {
  store::IndexPage page{store::MessageKind::Postponed, index_.area(), 0, kPageRows};
  while (true) {
    std::vector<store::IndexEntry> rows;
    const AdapterError listed = note(index_.index().list(page, rows));
    if (listed != AdapterError::None) return listed;
    for (const store::IndexEntry& row : rows) {
      page.afterRow = row.row;
      const std::string id = index_.idIn(row.path);
      SpoolEntry entry;
      if (id.empty() || spool_.readHead(id, entry) != AdapterError::NotFound) continue;
      const AdapterError removed = note(index_.remove(id));
      if (removed != AdapterError::None) return removed;
      ++report_->rowsRemoved;
    }
    if (rows.size() < kPageRows) return AdapterError::None;
  }
}

AdapterError SpoolSweep::addMissingRows() {
  std::vector<std::string> ids;
  const AdapterError listed = spool_.list(ids);
  if (listed != AdapterError::None) return listed;
  for (const std::string& id : ids) {
    const AdapterError outcome = addMissingRow(id);
    if (outcome != AdapterError::None) return outcome;
  }
  return AdapterError::None;
}

AdapterError SpoolSweep::addMissingRow(const std::string& id) {
  SpoolEntry entry;
  // Most entries are of another kind, or have their row: neither needs the message.
  if (spool_.readHead(id, entry) != AdapterError::None) return AdapterError::None;
  if (entry.kind != kPostponedKind) return AdapterError::None;
  bool present = false;
  const AdapterError looked = note(index_.has(id, present));
  if (looked != AdapterError::None || present) return looked;
  // Whoever files or sends it now has yet to add its row, or is about to remove it.
  core::Descriptor hold;
  std::string bytes;
  AdapterError error = spool_.hold(id, hold);
  if (error == AdapterError::None) error = spool_.read(id, entry, bytes);
  if (error == AdapterError::NotFound) return AdapterError::None;
  if (error != AdapterError::None) {
    ++report_->rowsNotAdded;
    return AdapterError::None;
  }
  const auto message = message::Message::parse(message::Buffer::copyOf(bytes));
  bool added = false;
  const AdapterError outcome = note(index_.addMissing(id, entry, *message, added));
  if (added) ++report_->rowsAdded;
  return outcome;
}

}  // namespace host::delivery
