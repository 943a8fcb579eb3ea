// What the adapter keeps on disk.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "host/core/folder.h"
#include "host/delivery/adapter_error.h"
#include "host/delivery/filing.h"
#include "host/delivery/filing_sweep.h"
#include "host/delivery/smtp_observer.h"
#include "host/delivery/spool.h"
#include "host/delivery/spool_index.h"
#include "host/delivery/spool_sweep.h"
#include "host/store/store.h"

namespace host::delivery {

/// The folder of the real adapter: "spool/" with waiting messages, "decisions.jsonl" with one
/// flushed line for each message that was deleted, and, unless another store was given,
/// "store.sqlite" with the index of stored messages and the ledger of effects, made with its first
/// use. One per process, opened once; shared by all adapters and safe from any thread.
class KAVI_API DeliveryState {
 public:
  /// \param store  to be used instead of the one in the folder; may be null
  explicit DeliveryState(core::FileOps& ops = core::FileOps::system(),
                         std::shared_ptr<store::Store> store = nullptr);

  /// The folder of the spool in the folder \p path.
  static std::string spoolPath(const std::string& path) { return path + "/spool"; }

  /// Opens \p path, made with mode 0700 when it is missing.
  AdapterError open(const std::string& path);

  /// Opens a folder that messages are filed under, made with mode 0700 when it is missing, and
  /// brings it and the index in line (see FilingSweep). To be called at the start for every folder
  /// that a setting names; may run while messages are filed.
  /// \param fault  receives the words of a failure of the index
  AdapterError prepareFiling(store::MessageKind kind, const std::string& directory,
                             SweepReport& report, std::string& fault);

  /// Brings the spool and the index in line (see SpoolSweep). To be called at the start; may run
  /// while messages are filed and sent. \param fault  as above
  AdapterError prepareSpool(SpoolSweepReport& report, std::string& fault);

  /// Forgets the effects of messages that got a final answer other than a temporary failure; of all
  /// of them or of none. \param fault  receives the words of a failure
  AdapterError answer(const std::vector<store::Digest>& messages, std::string& fault);

  /// Drops what the ledger still keeps of messages that no sender tries again, because their final
  /// answer could not be written down. To be called now and then.
  /// \param dropped  receives how many effects
  AdapterError forgetOldEffects(std::size_t& dropped, std::string& fault);

  /// Writes one line, durably. \param line  JSON without line break.
  AdapterError recordDecision(const std::string& line);

  Spool& spool() { return spool_; }
  /// The rows of what waits in the spool; null before `open`.
  SpoolIndex* spoolIndex() { return spoolIndex_.get(); }
  /// The store; null before `open`, unless one was given.
  store::Store* store() { return store_.get(); }
  /// Has observers hear of the store's failures and of what is handed off, from now on. Behind
  /// `open`, before other threads use the state, which they must outlive. Null for none.
  void observe(store::StoreObserver* store, SmtpObserver* smtp);
  SmtpObserver* smtpObserver() const { return smtpObserver_; }

  /// What files messages; null before `open`.
  Filing* filing() { return filing_.get(); }

 private:
  core::FileOps& ops_;
  core::Folder folder_;
  Spool spool_;
  std::shared_ptr<store::Store> store_;
  std::unique_ptr<Filing> filing_;
  std::unique_ptr<SpoolIndex> spoolIndex_;
  SmtpObserver* smtpObserver_ = nullptr;
};

}  // namespace host::delivery
