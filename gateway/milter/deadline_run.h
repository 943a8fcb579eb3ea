// Lets no action begin once a message's time is up.
#pragma once

#include <chrono>
#include <stop_token>
#include <utility>

#include "host/delivery/message_run.h"

namespace gateway::milter {

/// Passes everything on to an adapter's own run, but an action that would begin behind the deadline
/// is refused: the run fails, and the sender tries again later. What an action does meanwhile has
/// bounds of its own. One per message.
class DeadlineRun final : public host::delivery::MessageRun {
 public:
  using Clock = std::chrono::steady_clock;

  /// \param run  borrowed
  /// \param breakOff  as in SmtpTimeouts: no action begins behind it either
  DeadlineRun(host::delivery::MessageRun& run, Clock::time_point deadline,
              std::stop_token breakOff = {})
      : run_(run), deadline_(deadline), breakOff_(std::move(breakOff)) {}

  void setPasses(unsigned int passes) override { run_.setPasses(passes); }
  host::delivery::AdapterError beginMessage(
      const OvMsgMailMessage& msg, std::string_view received,
      const Kavi::TokenMap<Kavi::ScanToken>& tokens) override {
    return run_.beginMessage(msg, received, tokens);
  }
  host::delivery::AdapterError beginAction(unsigned int ruleId, unsigned int position,
                                           std::string_view setting) override {
    if (breakOff_.stop_requested()) return host::delivery::AdapterError::BrokenOff;
    if (Clock::now() >= deadline_) return host::delivery::AdapterError::TimedOut;
    return run_.beginAction(ruleId, position, setting);
  }
  host::delivery::AdapterError finalAnswer(host::delivery::FinalAnswer answer) override {
    return run_.finalAnswer(answer);
  }
  const std::string& lastFault() const override { return run_.lastFault(); }
  std::string lastPlace() const override { return run_.lastPlace(); }

 private:
  host::delivery::MessageRun& run_;
  Clock::time_point deadline_;
  std::stop_token breakOff_;
};

}  // namespace gateway::milter
