// Sends what waits in the spool.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <string>

#include "host/delivery/delivery_settings.h"
#include "host/delivery/seal_keys.h"
#include "host/delivery/smtp_client.h"
#include "host/delivery/smtp_observer.h"
#include "host/delivery/spool.h"
#include "host/delivery/spool_index.h"
#include "host/delivery/spool_state.h"
#include "library/platform/api.h"
#include "library/platform/log_msg.h"

namespace host::delivery {

/// What one run over the spool came to.
struct SubmissionCounts {
  std::size_t sent = 0;
  std::size_t deferred = 0;             ///< tried in this run and refused for now
  std::size_t failed = 0;               ///< tried in this run and refused for good
  std::size_t waiting = 0;              ///< not due yet
  std::size_t skipped = 0;              ///< due, but their server did not answer in this run
  std::size_t busy = 0;                 ///< in the hands of another worker, or of an administrator
  std::size_t stuck = 0;                ///< failed in an earlier run
  std::size_t troubled = 0;             ///< our own disk did not let them be tried
  std::optional<std::int64_t> nextDue;  ///< of those waiting or deferred
};

/// Submits the spool's messages: "resend", and "postpone" in its window, to the server that scans,
/// everything else to the one that does not. One message is sent at a time and goes to all its
/// recipients or to none. What is refused for now is tried again after growing pauses; what is
/// refused for good, for whatever recipient, stays in the spool as failed, is logged at level 1,
/// and waits for an administrator (SpoolControl). Any number of workers, in any processes, may
/// share a spool: no entry is in the hands of two.
///
/// A message is marked before it is sent. One whose end is not written down, because the process
/// was killed or the server went away behind the final dot, is sent again and may arrive twice:
/// that is logged at level 1.
class KAVI_API SubmissionWorker {
 public:
  /// All of it must outlive the worker.
  /// \param log    may be null
  /// \param index  the rows of postponed messages, which go with them; may be null
  SubmissionWorker(Spool& spool, const DeliverySettings& settings, const SealKeys& keys,
                   Kavi::LogMsg* log, SpoolIndex* index = nullptr);

  /// Has \p observer, which must outlive the worker, hear of every attempt. Before it runs.
  void observe(SmtpObserver* observer) { observer_ = observer; }

  /// Tries every entry that is due, once, the oldest first. \param now  seconds since 1970
  /// \param stop  ends the run between two messages
  SubmissionCounts runOnce(std::int64_t now, const std::stop_token& stop = {});

  /// Runs until \p stop: whenever something is due, and at least every \p longestWait. Messages
  /// that other processes file are found then.
  void run(const std::stop_token& stop,
           std::chrono::milliseconds longestWait = std::chrono::seconds(5));

  /// Ends the present wait of `run`: something was filed. From any thread.
  void wake();

 private:
  class Run;

  Spool& spool_;
  const DeliverySettings& settings_;
  const SealKeys& keys_;
  Kavi::LogMsg* log_;
  SpoolIndex* index_;
  SmtpObserver* observer_ = nullptr;
  std::set<std::string> unremoved_;  ///< went out, and are not known to be gone from the disk
  std::mutex mutex_;
  std::condition_variable_any changed_;
  bool awake_ = false;
};

}  // namespace host::delivery
