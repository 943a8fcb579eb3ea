#include "gateway/milter/store_policy.h"

#include <utility>

#include "gateway/policy/stored_policy.h"
#include "host/core/text_escape.h"

namespace gateway::milter {

StorePolicy::StorePolicy(std::unique_ptr<host::store::Database> store)
    : PolicySource("of store " + host::core::printable(store->location())),
      store_(std::move(store)) {}

PolicyReading StorePolicy::read() {
  policy::Diagnostics diagnostics("store " + host::core::printable(store_->location()));
  policy::StoredPolicy stored = policy::loadFromStore(*store_, diagnostics);
  PolicyReading reading;
  if (!stored.status.ok()) {
    reading.away = stored.status.text;
    return reading;
  }
  reading.snapshot = std::move(stored.snapshot);
  reading.faults = diagnostics.texts();
  if (reading.snapshot != nullptr && reading.snapshot->rules().empty()) {
    reading.faults.push_back(name() + ": it has no rules: every message passes unchanged");
  }
  reading.revision = stored.revision;
  return reading;
}

std::string StorePolicy::update() {
  std::int64_t found = 0;
  if (const auto status = store_->readRevision(found); !status.ok()) return status.text;
  if (found == revision()) return {};
  const std::unique_lock lock = lockReading();
  // Whoever held the lock may have read it, or more.
  if (const auto status = store_->readRevision(found); !status.ok()) return status.text;
  if (found == revision()) return {};
  PolicyReading reading = read();
  if (!reading.away.empty()) return reading.away;
  putInForce(std::move(reading));
  return {};
}

std::shared_ptr<const policy::Snapshot> StorePolicy::forMessage(std::string& fault) {
  if (const std::string why = update(); !why.empty()) {
    noteAway(why);
    fault = "the policy cannot be read: " + why;
    return nullptr;
  }
  noteBack();
  return PolicySource::forMessage(fault);
}

}  // namespace gateway::milter
