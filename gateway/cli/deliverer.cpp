#include "gateway/cli/deliverer.h"

#include <functional>
#include <string_view>

#include "gateway/cli/startup.h"
#include "gateway/engine/filing_folders.h"
#include "host/core/text_escape.h"
#include "host/delivery/adapter_error.h"
#include "host/delivery/local_adapter.h"

namespace gateway::cli {
namespace {

using host::delivery::AdapterError;

std::string textOf(AdapterError error) {
  return host::delivery::adapterErrorText(static_cast<unsigned int>(error));
}

/// "PATH: WHY (WORDS)".
void complainOf(const std::string& path, AdapterError error, const std::string& words) {
  complain(host::core::printable(path + ": " + textOf(error) +
                                 (words.empty() ? "" : " (" + words + ")")));
}

}  // namespace

class Deliverer::Job final : public JobAdapter {
 public:
  Job(Deliverer& owner, std::size_t content)
      : owner_(owner), content_(content), adapter_(owner.state_, &owner.settings_, &owner.log_) {
    std::unique_lock lock(owner_.mutex_);
    owner_.turnOver_.wait(lock, [&] { return !owner_.atWork_.contains(content_); });
    owner_.atWork_.insert(content_);
  }
  ~Job() override { endTurn(); }

  OvIsAdapter& adapter() override { return adapter_; }
  host::delivery::MessageRun* messageRun() override { return &adapter_; }
  std::string finish(std::vector<AdapterCall>&) override {
    unanswered_ = adapter_.leaveUnanswered();
    endTurn();
    return {};
  }
  std::optional<host::store::Digest> unanswered() override { return unanswered_; }

 private:
  void endTurn() {
    const std::lock_guard lock(owner_.mutex_);
    if (ended_) return;
    ended_ = true;
    owner_.atWork_.erase(content_);
    owner_.turnOver_.notify_all();
  }

  Deliverer& owner_;
  std::size_t content_;
  bool ended_ = false;
  std::optional<host::store::Digest> unanswered_;
  host::delivery::LocalAdapter adapter_;
};

Deliverer::Deliverer(const host::delivery::DeliverySettings& settings,
                     const host::delivery::SealKeys& keys, host::core::ProcessLog& log)
    : settings_(settings), keys_(keys), log_(log) {}

bool Deliverer::open(Kavi::GlobalSetting& settings, const policy::Snapshot& policy) {
  const std::string& folder = settings_.stateFolder;
  if (const AdapterError error = state_.open(folder); error != AdapterError::None) {
    complainOf(folder, error, "the state folder: state_folder in section delivery, or --state");
    return false;
  }
  std::size_t dropped = 0;
  std::string fault;
  if (const auto error = state_.forgetOldEffects(dropped, fault); error != AdapterError::None) {
    complainOf(folder, error, fault);
    return false;
  }
  std::vector<std::string> notes;
  fault = engine::prepareFilingFolders(policy, settings, state_, notes);
  for (const std::string& note : notes) complain(host::core::printable(note));
  if (!fault.empty()) complain(host::core::printable(fault));
  return fault.empty();
}

std::unique_ptr<JobAdapter> Deliverer::make(const host::message::Message& message,
                                            const InputMessage&) {
  return std::make_unique<Job>(*this, std::hash<std::string_view>()(message.receivedBytes()));
}

void Deliverer::keep(const MessageResult& result) {
  if (result.unanswered) unanswered_.push_back(*result.unanswered);
}

Submission Deliverer::submit(bool verbose) {
  return submitSpool(state_, settings_, keys_, log_, verbose);
}

void Deliverer::answer() {
  std::string fault;
  const AdapterError error = state_.answer(unanswered_, fault);
  if (error == AdapterError::None) return;
  complainOf(settings_.stateFolder, error, fault);
  complain("the same messages, run again within 30 days, will count as another attempt");
}

}  // namespace gateway::cli
