// What an administrator does with the spool.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/delivery/spool.h"
#include "host/delivery/spool_state.h"
#include "library/platform/api.h"

namespace host::delivery {

/// One message in the spool as it is shown.
struct SpoolItem {
  enum class Condition {
    Waiting,     ///< for its time, or for its next attempt
    Sending,     ///< an attempt is under way
    Failed,      ///< refused for good: stays until it is retried or deleted
    Damaged,     ///< its file is not what was written; nothing but its id is known
    Unreadable,  ///< `fault` says why; nothing but its id is known
  };
  std::string id;
  Condition condition = Condition::Waiting;
  SpoolEntry entry;
  SpoolState state;
  AdapterError fault = AdapterError::None;
  std::int64_t due = 0;  ///< not before that, seconds since 1970; 0 unless it waits

  /// Whether an attempt may have succeeded without our knowing. One under way is not yet such.
  bool isPossiblyDoubled() const {
    return condition == Condition::Sending ? state.uncertain : state.isPossiblyDoubled();
  }
};

struct SpoolSummary {
  std::size_t due = 0;
  std::size_t waiting = 0;  ///< for their time, or their next attempt
  std::size_t sending = 0;
  std::size_t failed = 0;
  std::size_t damaged = 0;
  std::size_t unreadable = 0;
  std::int64_t oldest = 0;  ///< when the oldest was filed, seconds since 1970; 0: none
};

/// Lists, shows, retries and deletes. Safe from any thread, and while workers run.
class KAVI_API SpoolControl {
 public:
  using Clock = std::int64_t (*)();  ///< seconds since 1970

  /// \param schedule  the one that the worker goes by
  /// \param clock     says when it is now, for what is due
  explicit SpoolControl(Spool& spool, const RetrySchedule& schedule = {}, Clock clock = systemClock)
      : spool_(spool), schedule_(schedule), clock_(clock) {}

  /// Replaces \p items by what is in the spool, the oldest first. An entry that cannot be read is
  /// among them.
  AdapterError list(std::vector<SpoolItem>& items) const;

  /// How many there are of each condition.
  AdapterError summarise(SpoolSummary& summary) const;

  /// One message with everything that was tried. NotFound when there is none under \p id.
  AdapterError show(const std::string& id, SpoolItem& item, std::vector<SpoolEvent>& events) const;

  /// Makes a message due now; a failed one waits again. UnderWay while it is being sent, Damaged
  /// when it cannot be. \param now  seconds since 1970
  AdapterError retry(const std::string& id, std::int64_t now);

  /// Removes a message for good. UnderWay while it is being sent.
  AdapterError remove(const std::string& id);

  static std::int64_t systemClock();

 private:
  AdapterError look(const std::string& id, SpoolItem& item, std::vector<SpoolEvent>& events) const;
  AdapterError readEvents(const std::string& id, std::vector<SpoolEvent>& events,
                          bool& isUnderWay) const;

  Spool& spool_;
  RetrySchedule schedule_;
  Clock clock_;
};

}  // namespace host::delivery
