#include "library/framework/resource.h"

#include "library/framework/guard.h"

namespace library {

void ResourceDeleter::operator()(OvMsgResourceLocator* locator) const noexcept {
  guarded("OvMsg_DeleteResourceLocator", false, [&] {
    OvMsg_DeleteResourceLocator(locator);
    return true;
  });
}

Resource makeResource(std::string_view content) {
  const auto length = static_cast<unsigned int>(content.size());
  return Resource(
      OvMsg_CreateResourceLocator(content.data(), kOvMsgMemoryResource, length, length, 1));
}

}  // namespace library
