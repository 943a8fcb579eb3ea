// What the adapter keeps on disk.
#pragma once

#include <string>

#include "host/core/folder.h"
#include "host/delivery/adapter_error.h"
#include "host/delivery/spool.h"

namespace host::delivery {

/// The folder of the real adapter: "spool/" with waiting messages, and "decisions.jsonl" with one
/// flushed line for each message that was deleted. One per process, opened once; shared by all
/// adapters and safe from any thread.
class KAVI_API DeliveryState {
 public:
  explicit DeliveryState(core::FileOps& ops = core::FileOps::system())
      : folder_(ops), spool_(ops) {}

  /// Opens \p path, made with mode 0700 when it is missing.
  AdapterError open(const std::string& path);

  /// Writes one line, durably. \param line  JSON without line break.
  AdapterError recordDecision(const std::string& line);

  Spool& spool() { return spool_; }

 private:
  core::Folder folder_;
  Spool spool_;
};

}  // namespace host::delivery
