#include "tests/fakes/resource_locator.h"

#include "library/platform/ov_msg_functions.h"
#include "tests/fakes/fault_plan.h"

namespace fakes {

ResourceLocators& ResourceLocators::instance() {
  static ResourceLocators locators;
  return locators;
}

void ResourceLocators::clear() {
  refuses_ = false;
  std::vector<std::string>().swap(calls_);  // gives the memory back, too: sweeps count what is left
}

void ResourceLocators::record(const std::string& call, int change) {
  calls_.push_back(call);
  alive_ += change;
}

namespace {

class Locator : public OvMsgResourceLocator {
 public:
  Locator(const char* data, unsigned int length) : bytes_(data, length) {}
  const char* data() const override { return bytes_.data(); }
  std::size_t size() const override { return bytes_.size(); }

 private:
  std::string bytes_;
};

}  // namespace

}  // namespace fakes

OvMsgResourceLocator* OvMsg_CreateResourceLocator(const char* data, int kind, unsigned int length,
                                                  unsigned int capacity, int copy) {
  if (fakes::platformCallFails() || fakes::ResourceLocators::instance().refuses()) {
    return nullptr;
  }
  auto* const locator = new fakes::Locator(data, length);
  const fakes::Unswept unswept;
  fakes::ResourceLocators::instance().record(
      "create " + std::to_string(kind) + " " + std::to_string(length) + " " +
          std::to_string(capacity) + " " + std::to_string(copy),
      1);
  return locator;
}

void OvMsg_DeleteResourceLocator(OvMsgResourceLocator* locator) {
  if (locator != nullptr) {
    const fakes::Unswept unswept;
    fakes::ResourceLocators::instance().record("delete", -1);
    delete static_cast<fakes::Locator*>(locator);
  }
  fakes::platformCallFails();  // has no failure result: may only throw, when all is done
}

void OvMsg_SetDisclaimerAttachmentAsDefault(int on) {
  fakes::platformCallFails();  // has no failure result: may only throw
  const fakes::Unswept unswept;
  fakes::ResourceLocators::instance().record("stamps as attachments " + std::to_string(on));
}
