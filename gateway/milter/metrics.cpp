#include "gateway/milter/metrics.h"

#include <prometheus/collectable.h>
#include <prometheus/counter.h>
#include <prometheus/exposer.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <utility>
#include <vector>

#include "host/core/guard.h"
#include "host/delivery/spool_control.h"

namespace gateway::milter {
namespace {

using prometheus::Counter;
using prometheus::Family;
using prometheus::Histogram;

/// Seconds: from mail that nothing matches to hand-offs that time out.
const Histogram::BucketBoundaries kDurations = {0.001, 0.003, 0.01, 0.03, 0.1, 0.3, 1, 3, 10, 60};

/// What the spool holds, looked at when somebody asks.
class SpoolFigures final : public prometheus::Collectable {
 public:
  explicit SpoolFigures(host::delivery::Spool& spool) : control_(spool) {}

  std::vector<prometheus::MetricFamily> Collect() const override {
    host::delivery::SpoolSummary summary;
    if (control_.summarise(summary) != host::delivery::AdapterError::None) return {};
    prometheus::MetricFamily family;
    family.name = "kavi_spool_messages";
    family.help = "Messages in the spool by state";
    family.type = prometheus::MetricType::Gauge;
    for (const auto& [state, count] : {std::pair{"due", summary.due},
                                       {"waiting", summary.waiting},
                                       {"sending", summary.sending},
                                       {"failed", summary.failed},
                                       {"damaged", summary.damaged},
                                       {"unreadable", summary.unreadable}}) {
      prometheus::ClientMetric& metric = family.metric.emplace_back();
      metric.label.push_back({"state", state});
      metric.gauge.value = static_cast<double>(count);
    }
    return {family};
  }

 private:
  host::delivery::SpoolControl control_;
};

Family<Counter>& counters(prometheus::Registry& registry, const char* name, const char* help) {
  return prometheus::BuildCounter().Name(name).Help(help).Register(registry);
}

const char* nameOf(host::store::StoreError error) {
  using host::store::StoreError;
  switch (error) {
    case StoreError::Unavailable:
      return "unavailable";
    case StoreError::Busy:
      return "busy";
    case StoreError::Full:
      return "full";
    case StoreError::ReadOnly:
      return "read_only";
    case StoreError::Permission:
      return "permission";
    case StoreError::Damaged:
      return "damaged";
    case StoreError::TooNew:
      return "too_new";
    case StoreError::InputOutput:
      return "input_output";
    case StoreError::OutOfMemory:
      return "out_of_memory";
    default:
      return "internal";
  }
}

const char* nameOf(host::delivery::SmtpRoute route) {
  using host::delivery::SmtpRoute;
  if (route == SmtpRoute::HandOff) return "handoff";
  return route == SmtpRoute::Scan ? "scan" : "plain";
}

const char* nameOf(host::delivery::SmtpResult result) {
  using host::delivery::SmtpResult;
  if (result == SmtpResult::Sent) return "sent";
  return result == SmtpResult::Deferred ? "deferred" : "refused";
}

}  // namespace

struct Metrics::Impl {
  Impl(int port, host::delivery::Spool& spool)
      : registry(std::make_shared<prometheus::Registry>()),
        spoolFigures(std::make_shared<SpoolFigures>(spool)),
        messages(counters(*registry, "kavi_messages_total", "Messages by verdict")),
        actions(counters(*registry, "kavi_actions_total", "Actions by name and result")),
        verdicts(counters(*registry, "kavi_rule_verdicts_total", "Messages that a rule refused")),
        accepted(counters(*registry, "kavi_rule_failures_accepted_total",
                          "Failures of rules that let the message go on")),
        policies(counters(*registry, "kavi_policy_loads_total", "Policies read while serving")),
        storeErrors(
            counters(*registry, "kavi_store_errors_total", "Failures of the store by kind")),
        submissions(counters(*registry, "kavi_smtp_submissions_total",
                             "Attempts to send a message by route and result")),
        durations(prometheus::BuildHistogram()
                      .Name("kavi_message_duration_seconds")
                      .Help("From the last byte of a message to its answer")
                      .Register(*registry)
                      .Add({}, kDurations)),
        exposer("127.0.0.1:" + std::to_string(port), 1) {
    exposer.RegisterCollectable(registry);
    exposer.RegisterCollectable(spoolFigures);
  }

  std::shared_ptr<prometheus::Registry> registry;
  std::shared_ptr<SpoolFigures> spoolFigures;
  Family<Counter>& messages;
  Family<Counter>& actions;
  Family<Counter>& verdicts;
  Family<Counter>& accepted;
  Family<Counter>& policies;
  Family<Counter>& storeErrors;
  Family<Counter>& submissions;
  Histogram& durations;
  prometheus::Exposer exposer;
};

Metrics::Metrics(int port, host::delivery::Spool& spool)
    : impl_(std::make_unique<Impl>(port, spool)) {}

Metrics::~Metrics() = default;

void Metrics::count(const Answer& answer, const engine::Outcome& outcome,
                    std::chrono::duration<double> took) {
  impl_->messages.Add({{"verdict", answer.name()}}).Increment();
  impl_->durations.Observe(took.count());
  if (outcome.verdictRule != 0) {
    impl_->verdicts.Add({{"rule", std::to_string(outcome.verdictRule)}, {"verdict", answer.name()}})
        .Increment();
  }
  for (const engine::RuleReport& rule : outcome.rules) {
    if (rule.failureAccepted) {
      impl_->accepted.Add({{"rule", std::to_string(rule.id)}}).Increment();
    }
    for (const engine::ActionReport& action : rule.actions) {
      impl_->actions
          .Add({{"action", std::string(action.spec->name)},
                {"result", action.result ? "ok" : "failed"}})
          .Increment();
    }
  }
}

void Metrics::storeFailed(host::store::StoreError error) noexcept {
  host::core::guardedVoid([&] { impl_->storeErrors.Add({{"kind", nameOf(error)}}).Increment(); });
}

void Metrics::submitted(host::delivery::SmtpRoute route,
                        host::delivery::SmtpResult result) noexcept {
  host::core::guardedVoid([&] {
    impl_->submissions.Add({{"route", nameOf(route)}, {"result", nameOf(result)}}).Increment();
  });
}

void Metrics::countPolicy(bool used) {
  impl_->policies.Add({{"result", used ? "used" : "refused"}}).Increment();
}

void Metrics::countPolicyAway() { impl_->policies.Add({{"result", "away"}}).Increment(); }

}  // namespace gateway::milter
