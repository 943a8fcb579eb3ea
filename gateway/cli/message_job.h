// Running one input message and keeping what a report needs.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/cli/envelope.h"
#include "gateway/cli/inputs.h"
#include "gateway/cli/job_adapter.h"
#include "gateway/cli/message_changes.h"
#include "gateway/cli/message_diff.h"
#include "gateway/cli/output_folder.h"
#include "gateway/engine/engine.h"
#include "host/core/log.h"

namespace gateway::cli {

/// What all messages of a command have in common. Read by several threads at once.
struct JobSettings {
  std::shared_ptr<const policy::Snapshot> policy;
  const host::core::ProcessLog* log = nullptr;
  int logLevel = 2;
  std::optional<std::string> from;
  std::vector<std::string> recipients;
  /// Null: nothing is sent; what would be is written into the output folder, if there is one.
  JobAdapters* adapters = nullptr;
  const OutputFolder* out = nullptr;  ///< null: nothing is written
  std::string hostName;
  bool diff = false;  ///< reports show the difference of messages that changed
  /// Which reprocessing fields of the inputs count, and the keys of their seals (may be null).
  host::delivery::ReprocessTrust trust = host::delivery::ReprocessTrust::Nobody;
  const host::delivery::SealKeys* sealKeys = nullptr;
};

struct MessageResult {
  std::string name;  ///< of the input, as the command line reaches it; "box.mbox[3]"
  const InputFile* file = nullptr;
  std::size_t number = 0;  ///< in its mbox, counted from 1; else 0
  std::string error;       ///< why it could not be read or its result not be written
  bool ran = false;        ///< it was read, and what follows holds

  std::size_t bytes = 0;
  std::string id;
  ChosenEnvelope envelope;
  engine::Outcome outcome;
  std::vector<host::message::Defect> defects;
  std::vector<AdapterCall> calls;
  /// Of a message that goes on changed: what changed and, when asked for, the difference.
  std::vector<PartChange> parts;
  std::vector<DiffSection> diff;
  /// Path of the resulting message; empty when none was written, or into an mbox.
  std::string output;
  std::size_t outputBytes = 0;
  /// Whom it goes on to, when an action changed that.
  std::optional<std::vector<std::string>> outputRecipients;
  /// The message as the ledger of effects knows it, when it waits for its final answer.
  std::optional<host::store::Digest> unanswered;

  /// Of a message of an mbox that goes on: its bytes; else null.
  std::shared_ptr<const host::message::Buffer> rendered;
  std::string separator;  ///< what stands behind it in the mbox
};

/// Puts the addresses of the command line into \p settings.
/// \return false after writing to standard error which one is none.
bool readAddresses(const std::optional<std::string>& from,
                   const std::vector<std::string>& recipients, JobSettings& settings);

/// The name of this machine; empty when it has none.
std::string hostName();

/// Reads, runs and, but for messages of an mbox, writes one message. Never throws.
MessageResult runJob(InputMessage input, const JobSettings& settings);

}  // namespace gateway::cli
