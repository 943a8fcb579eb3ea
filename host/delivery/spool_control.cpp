#include "host/delivery/spool_control.h"

#include <algorithm>
#include <ctime>

#include "host/delivery/adapter_guard.h"

namespace host::delivery {

std::int64_t SpoolControl::systemClock() { return std::time(nullptr); }

// The log of an attempt that is under way is that of one that was cut off: who holds the entry
// tells them apart.
AdapterError SpoolControl::readEvents(const std::string& id, std::vector<SpoolEvent>& events,
                                      bool& isUnderWay) const {
  std::string log;
  AdapterError error = spool_.readLog(id, log);
  if (error != AdapterError::None) return error;
  events = parseSpoolLog(log);
  if (!SpoolState::of(events).open) return AdapterError::None;
  core::Descriptor hold;
  error = spool_.hold(id, hold);
  isUnderWay = error == AdapterError::UnderWay;
  if (isUnderWay) return AdapterError::None;
  if (error != AdapterError::None) return error;
  // It may have come to its end meanwhile.
  error = spool_.readLog(id, log);
  if (error == AdapterError::None) events = parseSpoolLog(log);
  return error;
}

AdapterError SpoolControl::look(const std::string& id, SpoolItem& item,
                                std::vector<SpoolEvent>& events) const {
  SpoolItem found;
  found.id = id;
  bool isUnderWay = false;
  AdapterError error = spool_.readHead(id, found.entry);
  const bool damaged = error == AdapterError::Damaged;
  if (damaged) error = AdapterError::None;
  if (error == AdapterError::None) error = readEvents(id, events, isUnderWay);
  if (error == AdapterError::NotFound || error == AdapterError::OutOfMemory) return error;
  if (error != AdapterError::None) {
    item = {};
    item.id = id;
    item.condition = SpoolItem::Condition::Unreadable;
    item.fault = error;
    events.clear();
    return AdapterError::None;
  }
  found.state = SpoolState::of(events);
  if (damaged) {
    found.condition = SpoolItem::Condition::Damaged;
  } else if (found.state.failed) {
    found.condition = SpoolItem::Condition::Failed;
  } else if (isUnderWay) {
    found.condition = SpoolItem::Condition::Sending;
  } else {
    found.due = dueTime(found.entry, found.state, schedule_, clock_());
  }
  item = std::move(found);
  return AdapterError::None;
}

AdapterError SpoolControl::list(std::vector<SpoolItem>& items) const {
  return guardedOutcome([&] {
    std::vector<std::string> ids;
    const AdapterError listed = spool_.list(ids);
    if (listed != AdapterError::None) return listed;
    std::vector<SpoolItem> found;
    std::vector<SpoolEvent> events;
    for (const std::string& id : ids) {
      SpoolItem item;
      const AdapterError error = look(id, item, events);
      if (error == AdapterError::NotFound) continue;  // sent meanwhile
      if (error != AdapterError::None) return error;
      found.push_back(std::move(item));
    }
    items.swap(found);
    return AdapterError::None;
  });
}

AdapterError SpoolControl::summarise(SpoolSummary& summary) const {
  std::vector<SpoolItem> items;
  const AdapterError error = list(items);
  if (error != AdapterError::None) return error;
  SpoolSummary found;
  const std::int64_t now = clock_();
  for (const SpoolItem& item : items) {
    if (item.condition == SpoolItem::Condition::Waiting) {
      ++(item.due <= now ? found.due : found.waiting);
    }
    if (item.condition == SpoolItem::Condition::Sending) ++found.sending;
    if (item.condition == SpoolItem::Condition::Failed) ++found.failed;
    if (item.condition == SpoolItem::Condition::Damaged) ++found.damaged;
    if (item.condition == SpoolItem::Condition::Unreadable) ++found.unreadable;
    if (item.entry.queuedAt == 0) continue;
    const std::int64_t filed = item.entry.queuedAt;
    found.oldest = found.oldest == 0 ? filed : std::min(found.oldest, filed);
  }
  summary = found;
  return AdapterError::None;
}

AdapterError SpoolControl::show(const std::string& id, SpoolItem& item,
                                std::vector<SpoolEvent>& events) const {
  return guardedOutcome([&] { return look(id, item, events); });
}

AdapterError SpoolControl::retry(const std::string& id, std::int64_t now) {
  return guardedOutcome([&] {
    core::Descriptor hold;
    AdapterError error = spool_.hold(id, hold);
    SpoolEntry entry;
    if (error == AdapterError::None) error = spool_.readHead(id, entry);
    if (error != AdapterError::None) return error;
    SpoolEvent event;
    event.kind = SpoolEvent::Kind::Retry;
    event.at = now;
    return spool_.appendLog(id, writeSpoolEvent(event));
  });
}

AdapterError SpoolControl::remove(const std::string& id) {
  return guardedOutcome([&] {
    core::Descriptor hold;
    const AdapterError error = spool_.hold(id, hold);
    return error == AdapterError::None ? spool_.remove(id) : error;
  });
}

}  // namespace host::delivery
