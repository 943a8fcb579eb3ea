#include <filesystem>
#include <stdexcept>

#include "host/delivery/local_adapter.h"
#include "host/delivery/recording_adapter.h"
#include "host/message/message.h"
#include "host/store/sqlite_store.h"
#include "tests/contract/subjects.h"
#include "tests/unit/host/core/temp_folder.h"

namespace contract {

namespace {

using host::delivery::AdapterError;
using host::message::Buffer;
using host::message::Message;

std::unique_ptr<Message> sampleMessage() {
  auto message = Message::parse(Buffer::copyOf("Subject: a\r\n\r\nbody\r\n"));
  message->setEnvelope({"a@example.org", {"b@example.org"}, {}});
  return message;
}

std::string envelopeOf(const Message& message) {
  std::string text = message.envelope().sender.value_or("(none)");
  for (const std::string& recipient : message.envelope().recipients) text += " " + recipient;
  return text;
}

class LocalBench final : public AdapterBench {
 public:
  LocalBench() {
    std::filesystem::create_directory(folder_);
    if (state_.open(temp_ / "state") != AdapterError::None) throw std::runtime_error("state");
  }

  OvIsAdapter& adapter() override { return adapter_; }
  OvMsgMailMessage& message() override { return *message_; }
  const std::string& folder() override { return folder_; }
  std::string envelope() const override { return envelopeOf(*message_); }
  void breakDown() override { std::filesystem::remove_all(temp_.path()); }
  bool offers(const std::string& operation) const override {
    return operation != "Handoff" && operation != "Resend" && operation != "Deliver";
  }

 private:
  testing_host::TempFolder temp_;
  std::string folder_ = temp_ / "filed";
  host::delivery::DeliveryState state_;
  host::delivery::LocalAdapter adapter_{state_};
  std::unique_ptr<Message> message_ = sampleMessage();
};

class RecordingBench final : public AdapterBench {
 public:
  OvIsAdapter& adapter() override { return adapter_; }
  OvMsgMailMessage& message() override { return *message_; }
  const std::string& folder() override { return folder_; }
  std::string envelope() const override { return envelopeOf(*message_); }
  /// A file where the folder should be.
  void breakDown() override { testing_host::writeFile(folder_, ""); }

 private:
  testing_host::TempFolder temp_;
  std::string folder_ = temp_ / "out";
  host::delivery::RecordingAdapter adapter_{folder_, "in.eml"};
  std::unique_ptr<Message> message_ = sampleMessage();
};

}  // namespace

std::unique_ptr<host::store::Store> makeStore(const std::string& folder) {
  return std::make_unique<host::store::SqliteStore>(folder + "/store.sqlite");
}

std::unique_ptr<host::store::PolicyStore> makePolicyStore(const std::string& folder) {
  return std::make_unique<host::store::SqliteStore>(folder + "/store.sqlite");
}

std::vector<AdapterKind> adapterKinds() {
  return {
      {"Local", []() -> std::unique_ptr<AdapterBench> { return std::make_unique<LocalBench>(); }},
      {"Recording",
       []() -> std::unique_ptr<AdapterBench> { return std::make_unique<RecordingBench>(); }}};
}

}  // namespace contract
