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

/// What the adapter's files are called: messages of an mbox are told apart by their number.
std::string adapterName(const InputMessage& input) {
  const std::string& name = input.file->outputName;
  if (input.number == 0) return name;
  return name + "-" + std::to_string(input.number) + ".eml";
}

class RecordingJob final : public JobAdapter {
 public:
  RecordingJob(const OutputFolder& out, const InputMessage& input)
      : out_(out), adapter_(out.path(), {adapterName(input), input.file->path, input.number}) {}

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
        call.sender = handOver.sender;
        call.recipients = handOver.recipients;
        if (call.error != 0) call.reason = host::delivery::adapterErrorText(call.error);
      }
    }
  }
  return calls;
}

std::unique_ptr<JobAdapter> DryAdapters::make(const host::message::Message&, const InputMessage&) {
  return std::make_unique<DryJob>();
}

std::unique_ptr<JobAdapter> RecordingAdapters::make(const host::message::Message&,
                                                    const InputMessage& input) {
  return std::make_unique<RecordingJob>(out_, input);
}

}  // namespace gateway::cli
