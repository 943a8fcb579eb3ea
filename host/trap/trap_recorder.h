// Looking at traps instead of sending them.
#pragma once

#include <string>
#include <vector>

#include "library/platform/api.h"
#include "library/platform/trap.h"

namespace host::trap {

/// A trap as it would have gone out.
struct RecordedTrap {
  std::string server;
  SNMPTrapVersion version;
  std::string oid;
  unsigned long specificType;
  std::string text;  ///< as long as a trap carries it
};

/// While it lives, traps of the present thread are kept here and none is sent; each counts as sent.
/// Of several, the youngest keeps them. To be destroyed on the thread that made it.
class KAVI_API TrapRecorder {
 public:
  TrapRecorder();
  ~TrapRecorder();
  TrapRecorder(const TrapRecorder&) = delete;
  TrapRecorder& operator=(const TrapRecorder&) = delete;

  const std::vector<RecordedTrap>& traps() const { return traps_; }

  /// The recorder of the present thread; null when there is none.
  static TrapRecorder* current();
  void record(const KaviTrapInfo& trap);

 private:
  TrapRecorder* outer_;
  std::vector<RecordedTrap> traps_;
};

}  // namespace host::trap
