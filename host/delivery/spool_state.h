// What was tried with a message in the spool.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/delivery/adapter_error.h"
#include "host/delivery/spool_entry.h"
#include "library/platform/api.h"

namespace host::delivery {

/// One line of an entry's log: a JSON object with "at" (seconds since 1970) and "event", and the
/// other members as the event has them.
struct SpoolEvent {
  enum class Kind {
    Attempt,   ///< written before a message is sent: without an end behind it, the end is unknown
    Deferred,  ///< refused for now; "code", "text", "due"
    Failed,    ///< refused for good; "code", "text"
    Retry,     ///< an administrator wants it tried again
    Sent,      ///< taken by the server; only the removal of the entry is left to do
  };
  Kind kind = Kind::Attempt;
  std::int64_t at = 0;
  unsigned int code = 0;   ///< an AdapterError
  std::string text;        ///< printable
  std::int64_t due = 0;    ///< when to try again
  bool uncertain = false;  ///< the server may have taken the message all the same

  bool operator==(const SpoolEvent&) const = default;
};

/// The name of an event in the log; never null.
KAVI_API const char* spoolEventName(SpoolEvent::Kind kind);

/// The line for \p event, without line break. Its text is made printable.
KAVI_API std::string writeSpoolEvent(const SpoolEvent& event);

/// Reads a log. Lines that are no events (a crash may leave half of one) are passed over. Takes
/// time linear in its size; throws for lack of memory only.
KAVI_API std::vector<SpoolEvent> parseSpoolLog(std::string_view log);

/// What the events come to.
struct KAVI_API SpoolState {
  unsigned int attempts = 0;        ///< all
  unsigned int recentAttempts = 0;  ///< since an administrator asked for a retry
  std::int64_t retryAsked = 0;      ///< when that was; 0: never
  std::int64_t firstAttempt = 0;    ///< of the recent ones; 0: there was none
  std::int64_t due = 0;             ///< not before that; 0: nothing was said
  std::int64_t dueSaid = 0;         ///< when that was said
  bool failed = false;
  bool sent = false;
  bool open = false;       ///< the last attempt has no end: it is under way, or was cut off
  bool uncertain = false;  ///< an earlier one may have succeeded without our knowing
  std::int64_t lastAttempt = 0;
  unsigned int code = 0;  ///< of the last failure
  std::string text;

  /// Whether one more attempt may be one too many.
  bool isPossiblyDoubled() const { return open || uncertain; }

  void apply(const SpoolEvent& event);
  static SpoolState of(const std::vector<SpoolEvent>& events);
};

/// When to try again, and for how long. All in seconds.
struct KAVI_API RetrySchedule {
  std::int64_t firstPause = 60;  ///< doubled from attempt to attempt
  std::int64_t longestPause = 3600;
  /// Since its first attempt, or the first since its retry was asked for.
  std::int64_t giveUpAfter = std::int64_t{5} * 24 * 3600;

  /// The pause behind the \p attempt -th attempt, counted from 1.
  std::int64_t pauseAfter(unsigned int attempt) const;
};

/// When an entry is to be tried next, seconds since 1970; past only if its window is open now. For
/// one that has not failed. What was written down by a clock that was more than an hour ahead of \p
/// now does not put it off: clocks that jump hold nothing back.
KAVI_API std::int64_t dueTime(const SpoolEntry& entry, const SpoolState& state,
                              const RetrySchedule& schedule, std::int64_t now);

}  // namespace host::delivery
