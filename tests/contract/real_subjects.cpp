#include <filesystem>
#include <stdexcept>

#include "host/delivery/local_adapter.h"
#include "host/message/message.h"
#include "host/store/sqlite_store.h"
#include "tests/contract/subjects.h"
#include "tests/unit/host/core/temp_folder.h"

namespace contract {

namespace {

using host::delivery::AdapterError;
using host::message::Buffer;
using host::message::Message;

class RealBench final : public AdapterBench {
 public:
  RealBench() : message_(Message::parse(Buffer::copyOf("Subject: a\r\n\r\nbody\r\n"))) {
    std::filesystem::create_directory(folder_);
    if (state_.open(temp_ / "state") != AdapterError::None) throw std::runtime_error("state");
    message_->setEnvelope({"a@example.org", {"b@example.org"}, {}});
  }

  OvIsAdapter& adapter() override { return adapter_; }
  OvMsgMailMessage& message() override { return *message_; }
  const std::string& folder() override { return folder_; }
  void breakDown() override { std::filesystem::remove_all(temp_.path()); }

 private:
  testing_host::TempFolder temp_;
  std::string folder_ = temp_ / "filed";
  host::delivery::DeliveryState state_;
  host::delivery::LocalAdapter adapter_{state_};
  std::unique_ptr<Message> message_;
};

}  // namespace

std::unique_ptr<host::store::Store> makeStore(const std::string& folder) {
  return std::make_unique<host::store::SqliteStore>(folder + "/store.sqlite");
}

std::unique_ptr<AdapterBench> makeAdapterBench() { return std::make_unique<RealBench>(); }

}  // namespace contract
