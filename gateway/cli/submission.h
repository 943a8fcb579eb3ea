// One run over the spool, as a command makes and reports it.
#pragma once

#include <string>
#include <vector>

#include "gateway/cli/terminal.h"
#include "host/core/log.h"
#include "host/delivery/delivery_settings.h"
#include "host/delivery/delivery_state.h"
#include "host/delivery/seal_keys.h"
#include "host/delivery/submission_worker.h"

namespace gateway::cli {

struct Submission {
  host::delivery::SubmissionCounts counts;
  std::vector<host::core::LogLine> lines;  ///< what servers answered, and what was doubtful

  /// Whether everything that was due went out.
  bool good() const;
};

/// Sends what is due in the spool, once.
/// \param verbose  collects the lines of what was sent, too
Submission submitSpool(host::delivery::DeliveryState& state,
                       const host::delivery::DeliverySettings& settings,
                       const host::delivery::SealKeys& keys, host::core::ProcessLog& log,
                       bool verbose);

/// For people: a line of counts, and one for each line collected.
std::string textReport(const Submission& submission, const Style& style);
/// For programs: one line of JSON without its line break.
std::string jsonReport(const Submission& submission);

/// Seconds since 1970 as local time; "now" when that is not after \p now.
std::string timeText(std::int64_t time, std::int64_t now);

}  // namespace gateway::cli
