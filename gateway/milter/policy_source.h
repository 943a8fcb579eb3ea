// The policy in force.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "gateway/policy/snapshot.h"
#include "host/core/log.h"

namespace gateway::milter {

/// What came of reading a policy.
struct PolicyReading {
  std::shared_ptr<const policy::Snapshot> snapshot;  ///< null when it cannot be used
  std::vector<std::string> faults{};                 ///< every error and doubt, a line each
  std::int64_t revision = 0;                         ///< of a store
  /// Why there is nothing to read from at present; empty when there is.
  std::string away{};
};

/// What belongs to a change of the policy. Called by any thread, and by one at a time where nothing
/// else is said.
struct PolicyHooks {
  host::core::ProcessLog* log = nullptr;  ///< null: nobody is told
  /// Makes ready what the policy needs. \return an error text; then it is not used.
  std::function<std::string(const policy::Snapshot&)> prepare{};
  std::function<void(bool used)> count{};
  /// Whenever a message, or somebody else, found nothing to read from; by many threads at once.
  std::function<void()> countAway{};
  /// At least between two tries to make ready what a policy needs.
  std::chrono::milliseconds preparePause{10'000};
};

/// Keeps what came of reading the policy. Every message takes the snapshot once, so that none meets
/// two policies. A policy that cannot be used leaves the one before it in force; one of which only
/// what it needs cannot be made ready is tried again with later messages. Safe from any thread.
class PolicySource {
 public:
  /// \param name  what to call it in messages
  explicit PolicySource(std::string name) : name_(std::move(name)) {}
  virtual ~PolicySource() = default;
  PolicySource(const PolicySource&) = delete;
  PolicySource& operator=(const PolicySource&) = delete;

  /// Before the first message.
  void setHooks(PolicyHooks hooks) { hooks_ = std::move(hooks); }

  /// Reads the policy, and leaves the one in force alone.
  virtual PolicyReading read() = 0;
  /// The policy for a message that runs now.
  /// \param fault  receives why there is none
  virtual std::shared_ptr<const policy::Snapshot> forMessage(std::string& fault);

  /// Reads the policy and puts it in force.
  void reload();
  /// Puts in force what was read before there was a message; it needs no preparation any more.
  void begin(const PolicyReading& reading);
  const std::string& name() const { return name_; }

 protected:
  /// Keeps the policy from being read by two threads at once.
  std::unique_lock<std::mutex> lockReading() { return std::unique_lock(reading_); }
  /// Puts \p reading in force if that can be, and tells everybody. Under lockReading().
  void putInForce(PolicyReading reading);
  /// Notes that there is nothing to read from.
  void noteAway(const std::string& why);
  /// Notes that there is.
  void noteBack();
  /// The revision last read, whether it could be used or not; -1 for none.
  std::int64_t revision() const { return revision_; }
  std::shared_ptr<const policy::Snapshot> current() const;

 private:
  using Clock = std::chrono::steady_clock;

  void tellInForce(const policy::Snapshot& snapshot);
  /// Puts in force what waits for that, once it can be made ready.
  void tryWaiting();
  void use(std::shared_ptr<const policy::Snapshot> snapshot);

  std::string name_;
  PolicyHooks hooks_;
  std::mutex reading_;
  std::shared_ptr<const policy::Snapshot> waiting_;  ///< read, not made ready; under reading_
  Clock::time_point nextTry_;                        ///< for it
  std::atomic<bool> isWaiting_ = false;
  std::atomic<std::int64_t> revision_ = -1;
  std::atomic<bool> away_ = false;
  mutable std::mutex mutex_;
  std::shared_ptr<const policy::Snapshot> current_;
};

}  // namespace gateway::milter
