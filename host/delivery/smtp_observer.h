// Who hears of what was sent, and what was not.
#pragma once

namespace host::delivery {

/// Where a message was sent to.
enum class SmtpRoute {
  Scan,     ///< from the spool to the listener that scans
  Plain,    ///< from the spool to the one that does not
  HandOff,  ///< to the host of an action, at once
};

enum class SmtpResult {
  Sent,
  Deferred,  ///< refused for now, or nobody answered
  Refused,   ///< refused for good, or given up
};

/// Called on the thread that sends, and so from any. Must return soon.
class SmtpObserver {
 public:
  virtual ~SmtpObserver() = default;

  /// An attempt to send a message is over.
  virtual void submitted(SmtpRoute route, SmtpResult result) noexcept = 0;
};

}  // namespace host::delivery
