#include "tests/contract/subjects.h"
#include "tests/fakes/adapter.h"
#include "tests/fakes/message.h"
#include "tests/fakes/named_object_store.h"
#include "tests/fakes/policy_store.h"
#include "tests/fakes/store.h"

namespace contract {

namespace {

class FakeBench final : public AdapterBench {
 public:
  OvIsAdapter& adapter() override { return adapter_; }
  OvMsgMailMessage& message() override { return message_; }
  const std::string& folder() override { return folder_; }
  void breakDown() override { adapter_.answer(22, 1); }

 private:
  fakes::Adapter adapter_;
  fakes::Message message_;
  std::string folder_ = "/var/spool/fake";
};

}  // namespace

std::unique_ptr<host::store::Store> makeStore(const std::string& /*folder*/) {
  return std::make_unique<fakes::MemoryStore>();
}

std::unique_ptr<host::store::PolicyStore> makePolicyStore(const std::string& /*folder*/) {
  return std::make_unique<fakes::MemoryPolicyStore>();
}

ObjectsInUse useObjects(const std::string& /*folder*/) {
  fakes::NamedObjectStore::instance().clear();
  return nullptr;
}

std::vector<AdapterKind> adapterKinds() {
  return {
      {"Fake", []() -> std::unique_ptr<AdapterBench> { return std::make_unique<FakeBench>(); }}};
}

}  // namespace contract
