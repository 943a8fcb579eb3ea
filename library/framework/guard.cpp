#include "library/framework/guard.h"

#include <exception>

#include "library/tokens/action_utils.h"

namespace library {

void reportException(const char* operation) noexcept {
  try {
    throw;
  } catch (const std::exception& exception) {
    ActionUtils::L1("%s failed: %s", operation, exception.what());
  } catch (...) {
    ActionUtils::L1("%s failed: unknown exception", operation);
  }
}

}  // namespace library
