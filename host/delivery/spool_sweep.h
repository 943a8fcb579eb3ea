// Bringing the spool and the index in line at the start.
#pragma once

#include <cstddef>
#include <string>

#include "host/delivery/adapter_error.h"
#include "host/delivery/spool.h"
#include "host/delivery/spool_index.h"

namespace host::delivery {

struct SpoolSweepReport {
  std::size_t rowsRemoved = 0;   ///< rows whose message had gone
  std::size_t rowsAdded = 0;     ///< postponed messages without a row that got one
  std::size_t rowsNotAdded = 0;  ///< likewise, that are being filed or sent, or cannot be read
};

/// What a crash, or an index that was away, left out of line: the row of a postponed message that
/// has gone is removed, and one without a row gets its row. May run while messages are filed and
/// sent. A failure of the index ends the sweep where it is; what was done stays done.
class KAVI_API SpoolSweep {
 public:
  SpoolSweep(const Spool& spool, SpoolIndex& index) : spool_(spool), index_(index) {}

  /// \param fault  receives the words of a failure that has more to say than its code
  AdapterError run(SpoolSweepReport& report, std::string& fault);

 private:
  AdapterError removeRowsWithoutMessage();
  AdapterError addMissingRows();
  AdapterError addMissingRow(const std::string& id);
  AdapterError note(const store::StoreStatus& status);

  const Spool& spool_;
  SpoolIndex& index_;
  SpoolSweepReport* report_ = nullptr;
  std::string* fault_ = nullptr;
};

}  // namespace host::delivery
