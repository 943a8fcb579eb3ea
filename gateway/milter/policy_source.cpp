#include "gateway/milter/policy_source.h"

#include <utility>

namespace gateway::milter {

std::shared_ptr<const policy::Snapshot> PolicySource::current() const {
  const std::lock_guard lock(mutex_);
  return current_;
}

void PolicySource::use(std::shared_ptr<const policy::Snapshot> snapshot) {
  const std::lock_guard lock(mutex_);
  current_.swap(snapshot);
}

void PolicySource::tryWaiting() {
  if (!isWaiting_) return;
  // One message's thread does it; the others go by what is in force.
  const std::unique_lock lock(reading_, std::try_to_lock);
  if (!lock.owns_lock() || waiting_ == nullptr || Clock::now() < nextTry_) return;
  const bool isReady = hooks_.prepare(*waiting_).empty();
  nextTry_ = Clock::now() + hooks_.preparePause;
  if (!isReady) return;
  if (hooks_.count) hooks_.count(true);
  if (hooks_.log != nullptr) tellInForce(*waiting_);
  use(std::move(waiting_));
  waiting_ = nullptr;
  isWaiting_ = false;
}

std::shared_ptr<const policy::Snapshot> PolicySource::forMessage(std::string& fault) {
  tryWaiting();
  std::shared_ptr<const policy::Snapshot> snapshot = current();
  if (snapshot == nullptr) fault = "no policy is in force";
  return snapshot;
}

void PolicySource::begin(const PolicyReading& reading) {
  if (!reading.away.empty()) return noteAway(reading.away);
  if (hooks_.log != nullptr) tellInForce(*reading.snapshot);
  use(reading.snapshot);
  revision_ = reading.revision;
}

void PolicySource::tellInForce(const policy::Snapshot& snapshot) {
  hooks_.log->write(2, "the policy %s is in force, with %zu rules", name_.c_str(),
                    snapshot.rules().size());
}

void PolicySource::reload() {
  const std::unique_lock lock = lockReading();
  PolicyReading reading = read();
  if (!reading.away.empty()) return noteAway(reading.away);
  noteBack();
  putInForce(std::move(reading));
}

void PolicySource::putInForce(PolicyReading reading) {
  std::shared_ptr<const policy::Snapshot> snapshot = std::move(reading.snapshot);
  waiting_ = nullptr;
  if (snapshot != nullptr && hooks_.prepare) {
    if (std::string fault = hooks_.prepare(*snapshot); !fault.empty()) {
      reading.faults.push_back(fault + " (tried again by itself)");
      waiting_.swap(snapshot);
      nextTry_ = Clock::now() + hooks_.preparePause;
    }
  }
  isWaiting_ = waiting_ != nullptr;
  if (hooks_.count) hooks_.count(snapshot != nullptr);
  if (hooks_.log != nullptr) {
    for (const std::string& fault : reading.faults) {
      hooks_.log->write(1, "policy: %s", fault.c_str());
    }
    if (snapshot != nullptr) {
      tellInForce(*snapshot);
    } else {
      hooks_.log->write(1, "the policy %s is NOT in force: %s", name_.c_str(),
                        current() != nullptr ? "the one before it stays"
                                             : "there is none, and mail is refused for now");
    }
  }
  if (snapshot != nullptr) use(std::move(snapshot));
  // Last: whoever sees the revision gets the policy.
  revision_ = reading.revision;
}

void PolicySource::noteAway(const std::string& why) {
  // What comes back need not be what went.
  revision_ = -1;
  if (hooks_.countAway) hooks_.countAway();
  if (away_.exchange(true) || hooks_.log == nullptr) return;
  hooks_.log->write(1, "the policy %s cannot be read, and mail is refused for now: %s",
                    name_.c_str(), why.c_str());
}

void PolicySource::noteBack() {
  if (!away_.exchange(false) || hooks_.log == nullptr) return;
  hooks_.log->write(1, "the policy %s can be read again", name_.c_str());
}

}  // namespace gateway::milter
