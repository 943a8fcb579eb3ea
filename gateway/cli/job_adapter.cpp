#include "gateway/cli/job_adapter.h"

#include "gateway/cli/dry_adapter.h"
#include "host/delivery/adapter_error.h"
#include "host/delivery/recording_adapter.h"

namespace gateway::cli {
namespace {

class DryJob final : public JobAdapter {
 public:
  OvIsAdapter& adapter() override { return adapter_; }
  std::string finish(std::vector<AdapterCall>& calls) override {
    // The path that it answers with is nobody's.
    for (AdapterCall& call : calls) call.file.clear();
    return {};
  }

 private:
  DryAdapter adapter_;
};

class RecordingJob final : public JobAdapter {
 public:
  RecordingJob(const OutputFolder& out, const std::string& inputName)
      : out_(out), adapter_(out.path(), inputName) {}

  OvIsAdapter& adapter() override { return adapter_; }

  std::string finish(std::vector<AdapterCall>& calls) override {
    const std::vector<host::delivery::RecordedCall>& recorded = adapter_.calls();
    std::string fault;
    for (std::size_t i = 0; i < recorded.size(); ++i) {
      if (i < calls.size()) calls[i].file = recorded[i].file;
      if (fault.empty() && !recorded[i].file.empty()) fault = out_.record(recorded[i].file);
    }
    if (fault.empty() && !recorded.empty()) fault = out_.record("calls.jsonl");
    return fault;
  }

 private:
  const OutputFolder& out_;
  host::delivery::RecordingAdapter adapter_;
};

}  // namespace

std::vector<AdapterCall> callsOf(const engine::Outcome& outcome) {
  std::vector<AdapterCall> calls;
  for (const engine::RuleReport& rule : outcome.rules) {
    for (const engine::ActionReport& action : rule.actions) {
      for (const engine::HandOver& handOver : action.handOvers) {
        AdapterCall& call = calls.emplace_back();
        call.operation = handOver.operation;
        call.file = handOver.place;
        call.error = handOver.error;
        if (call.error != 0) call.reason = host::delivery::adapterErrorText(call.error);
      }
    }
  }
  return calls;
}

std::unique_ptr<JobAdapter> DryAdapters::make(const host::message::Message&, const std::string&) {
  return std::make_unique<DryJob>();
}

std::unique_ptr<JobAdapter> RecordingAdapters::make(const host::message::Message&,
                                                    const std::string& inputName) {
  return std::make_unique<RecordingJob>(out_, inputName);
}

}  // namespace gateway::cli
