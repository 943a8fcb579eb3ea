// Runs messages on several threads and hands the results on in the order of the inputs.
#pragma once

#include <functional>

#include "gateway/cli/inputs.h"
#include "gateway/cli/message_job.h"

namespace gateway::cli {

/// Hands its argument inputs to `take` until there are no more or it answers false.
using Producer = std::function<void(const std::function<bool(InputMessage)>& take)>;

/// Runs every message that \p produce gives with `runJob`, on \p jobs threads, and hands the
/// results to \p consume on the calling thread, in order. What is read ahead is bounded by the
/// number of threads.
void runMessages(unsigned int jobs, const JobSettings& settings, const Producer& produce,
                 const std::function<void(MessageResult)>& consume);

}  // namespace gateway::cli
