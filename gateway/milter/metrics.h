// Figures about the daemon's work, for Prometheus.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "gateway/engine/engine.h"
#include "gateway/milter/answer.h"
#include "host/delivery/smtp_observer.h"
#include "host/delivery/spool.h"
#include "host/store/store_observer.h"

namespace gateway::milter {

/// Counts, and answers scrapes of http://127.0.0.1:PORT/metrics on threads of its own. What the
/// spool holds is looked at with each scrape. Every operation is safe from any thread.
class Metrics final : public host::store::StoreObserver, public host::delivery::SmtpObserver {
 public:
  /// Begins to answer. \param spool  must outlive this object
  /// \throw std::exception when the port cannot be used.
  Metrics(int port, host::delivery::Spool& spool);
  ~Metrics() override;
  Metrics(const Metrics&) = delete;
  Metrics& operator=(const Metrics&) = delete;

  /// A message has its answer.
  void count(const Answer& answer, const engine::Outcome& outcome,
             std::chrono::duration<double> took);
  /// A policy was read. \param used  whether it is in force now
  void countPolicy(bool used);
  /// The store of the policy could not be asked.
  void countPolicyAway();

  void storeFailed(host::store::StoreError error) noexcept override;
  void submitted(host::delivery::SmtpRoute route,
                 host::delivery::SmtpResult result) noexcept override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace gateway::milter
