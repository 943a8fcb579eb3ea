#include "gateway/milter/housekeeping.h"

#include <condition_variable>
#include <ctime>
#include <mutex>
#include <string>

#include "host/core/guard.h"
#include "host/delivery/filed_mail.h"

namespace gateway::milter {
namespace {

using host::delivery::AdapterError;

void purge(host::delivery::DeliveryState& state, const host::delivery::DeliverySettings& settings,
           host::core::ProcessLog& log, const std::stop_token& stop) {
  host::delivery::PurgeReport report;
  std::string words;
  host::delivery::FiledMail mail(state, settings, &log);
  const AdapterError error = mail.purge({std::time(nullptr), {}}, stop, report, words);
  if (report.removed != 0) {
    log.write(2, "removed %zu stored messages whose days were over", report.removed);
  }
  if (report.kept != 0) {
    log.write(1, "%zu stored messages whose days are over cannot be removed; %s", report.kept,
              report.firstFault.c_str());
  }
  if (error != AdapterError::None) {
    log.write(1, "stored messages whose days are over cannot be looked for: %s %s",
              host::delivery::adapterErrorText(static_cast<unsigned int>(error)), words.c_str());
  }
}

void forgetEffects(host::delivery::DeliveryState& state, host::core::ProcessLog& log) {
  std::size_t dropped = 0;
  std::string words;
  if (state.forgetOldEffects(dropped, words) != AdapterError::None) {
    log.write(1, "old effects cannot be forgotten: %s", words.c_str());
  }
}

}  // namespace

void keepHouse(host::delivery::DeliveryState& state,
               const host::delivery::DeliverySettings& settings, host::core::ProcessLog& log,
               const std::stop_token& stop) {
  std::mutex mutex;
  std::condition_variable_any ended;
  while (!stop.stop_requested()) {
    host::core::guardedVoid([&] {
      purge(state, settings, log, stop);
      forgetEffects(state, log);
    });
    std::unique_lock lock(mutex);
    ended.wait_for(lock, stop, kHousekeepingPause, [] { return false; });
  }
}

}  // namespace gateway::milter
