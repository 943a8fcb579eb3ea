// What becomes of quarantined and archived messages later: somebody looks at them, lets them go, or
// their days are over.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>

#include "host/core/file_ops.h"
#include "host/delivery/adapter_error.h"
#include "host/delivery/delivery_settings.h"
#include "host/delivery/delivery_state.h"
#include "host/delivery/envelope.h"
#include "host/store/message_index.h"
#include "library/platform/api.h"
#include "library/platform/log_msg.h"

namespace host::delivery {

/// How a message leaves.
struct ReleaseOrder {
  Envelope envelope;  ///< whom it is from and whom it goes to
  /// To the listener that does not scan. Otherwise it is scanned again, but for the rule that put
  /// it aside: the copy names that, and the worker that submits it adds the seal.
  bool isUnscanned = false;
  bool isKept = true;  ///< what is stored stays, too
};

/// What came of it.
struct ReleaseReport {
  bool isQueued = false;  ///< it goes out, whatever failed behind that
  /// All rules scan it again, because the copy does not name exactly one. False for one that is not
  /// scanned.
  bool scannedAgain = false;
  std::string fault;  ///< the words of a failure of the index
};

/// What is to be removed.
struct PurgeOrder {
  std::int64_t now = 0;                    ///< seconds since 1970
  std::optional<store::MessageKind> kind;  ///< nothing: every kind
};

struct PurgeReport {
  std::size_t removed = 0;
  std::size_t kept = 0;    ///< that could not be removed
  std::string firstFault;  ///< the path of the first of these, and why
};

/// Works on the copies that Filing made. One thread at a time; several processes may work on the
/// same messages.
class KAVI_API FiledMail {
 public:
  /// \param state     open; must outlive this object, as must \p settings
  /// \param log       receives why a message could not be queued; may be null
  FiledMail(DeliveryState& state, const DeliverySettings& settings, Kavi::LogMsg* log)
      : state_(state), settings_(settings), log_(log) {}

  /// Reads the stored copy of \p entry. NotFound when it is gone.
  AdapterError read(const store::IndexEntry& entry, std::string& message) const;

  /// Puts a copy into the spool, due at once, and then removes what is stored, unless it is kept. A
  /// kill in between may make a message go out twice; none is lost. UnderWay when somebody else
  /// releases or removes it at this moment, NotFound when that is done.
  AdapterError release(const store::IndexEntry& entry, const ReleaseOrder& order,
                       ReleaseReport& report);

  /// Removes the stored copy and its row. UnderWay as above.
  /// \param fault  receives the words of a failure of the index
  AdapterError remove(const store::IndexEntry& entry, std::string& fault);

  /// Removes the messages whose aging days are over, until \p stop. One that cannot be removed
  /// stays and does not keep others from being removed; one that somebody is at is left to them.
  /// \param fault  receives the words of a failure of the index
  AdapterError purge(const PurgeOrder& order, const std::stop_token& stop, PurgeReport& report,
                     std::string& fault);

 private:
  class Purge;

  /// Makes the caller the only one to work at a stored copy as long as \p hold lives, or the
  /// process; others are asked for by the same operation. \return as `release` says
  AdapterError hold(const store::IndexEntry& entry, core::Descriptor& hold,
                    std::string& fault) const;
  AdapterError queue(const store::IndexEntry& entry, const ReleaseOrder& order,
                     ReleaseReport& report);

  DeliveryState& state_;
  const DeliverySettings& settings_;
  Kavi::LogMsg* log_;
};

}  // namespace host::delivery
