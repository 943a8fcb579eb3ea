// Acting for real: `kavi run --deliver`.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

#include "gateway/cli/job_adapter.h"
#include "gateway/cli/message_job.h"
#include "gateway/cli/submission.h"
#include "gateway/policy/snapshot.h"
#include "host/core/log.h"
#include "host/delivery/delivery_settings.h"
#include "host/delivery/delivery_state.h"
#include "host/delivery/seal_keys.h"
#include "library/platform/global_setting.h"

namespace gateway::cli {

/// Runs messages on the real adapter. The whole command is one attempt at all its messages: they
/// get their final answer only when everything went well, at its very end. A command that was
/// stopped, or that failed with any of them, can be run again and does what is missing only.
class Deliverer final : public JobAdapters {
 public:
  /// All but \p keys borrowed. \p log receives what servers answered.
  Deliverer(const host::delivery::DeliverySettings& settings, const host::delivery::SealKeys& keys,
            host::core::ProcessLog& log);

  /// Opens the state folder, and prepares the folders that \p policy files under.
  /// \return false after writing the reason to standard error; then no message may run.
  bool open(Kavi::GlobalSetting& settings, const policy::Snapshot& policy);

  /// Messages of one content take turns: of two at once, one would find the other at work.
  std::unique_ptr<JobAdapter> make(const host::message::Message& message,
                                   const InputMessage& input) override;

  /// Keeps what \p result has unanswered.
  void keep(const MessageResult& result);
  /// Sends what is due in the spool, once.
  Submission submit(bool verbose);
  /// Gives every message that was kept its final answer, all at once: no kill parts them. Without
  /// it they are left for the next attempt.
  void answer();

 private:
  class Job;

  const host::delivery::DeliverySettings& settings_;
  const host::delivery::SealKeys& keys_;
  host::core::ProcessLog& log_;
  host::delivery::DeliveryState state_;
  std::vector<host::store::Digest> unanswered_;

  // The contents, as hashes, that are being worked at.
  std::mutex mutex_;
  std::condition_variable turnOver_;
  std::unordered_set<std::size_t> atWork_;
};

}  // namespace gateway::cli
