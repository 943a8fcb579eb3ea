// One message that waits in the spool, as a file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/delivery/envelope.h"
#include "host/delivery/time_window.h"
#include "library/platform/api.h"

namespace host::delivery {

/// What is kept of a waiting message beside its bytes. The file is
///
///     file   = "kavi-spool-1 " record LF message
///     record = a Blob record (host/core/blob.cpp) with the fields
///              kind, id, queued, bytes, from, to, rcpts, rcpt0, rcpt1, ... and, unless the
///              envelope has no sender at all, sender, and, if they are not 0, passes and rule
///
/// with decimal numbers ("queued" in seconds since 1970, "bytes" the message's length, "rcpts" the
/// number of recipients) and times as "HH:MM". The message is everything behind the first LF and
/// has exactly the stated length: a file cut short, or one that grew, is none.
struct SpoolEntry {
  std::string kind;           ///< why it waits: one of the names below
  std::string messageId;      ///< the id that the message had
  std::int64_t queuedAt = 0;  ///< when it was filed, seconds since 1970
  std::uint64_t messageBytes = 0;
  TimeWindow window;        ///< when it may go on
  unsigned int passes = 0;  ///< how often it came back for scanning before it was filed
  unsigned int rule = 0;    ///< of a postponed message: the one that held it back; 0: not known
  Envelope envelope;

  bool operator==(const SpoolEntry&) const = default;

  /// Whether it goes to the listener that scans. A postponed message whose rule is not known does
  /// not: the rule would hold it back again, every day.
  KAVI_API bool isForScanning() const;
};

inline constexpr char kPostponedKind[] = "postpone";  ///< goes back to scanning, in its window
inline constexpr char kResentKind[] = "resend";       ///< goes back to scanning
inline constexpr char kDeliveredKind[] = "deliver";   ///< goes on without scanning

/// A window that is always open.
inline constexpr TimeWindow kAnyTime{0, 0, 23, 59};

/// The largest head, line break included, that is written or read: enough for a hundred thousand
/// recipients.
inline constexpr std::size_t kMaxSpoolHeadBytes = 16u << 20;

/// The head of the file of \p entry, its line break included.
KAVI_API std::string writeSpoolHead(const SpoolEntry& entry);

/// Reads the head of a spool file. \param head  the file's begin, at least all of the head
/// \param headBytes  receives the head's length, its line break included
/// \return false if there is no whole head; the outputs are then as they were.
KAVI_API bool parseSpoolHead(std::string_view head, SpoolEntry& entry, std::size_t& headBytes);

/// Reads a whole spool file.
/// \param message  receives the part of \p file that is the message
/// \return false if the file is no complete entry; the outputs are then as they were. Takes time
///   linear in the head's size.
KAVI_API bool parseSpoolFile(std::string_view file, SpoolEntry& entry, std::string_view& message);

}  // namespace host::delivery
