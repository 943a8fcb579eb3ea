#include "tests/fakes/local_time.h"

#include <dlfcn.h>

#include "library/platform/api.h"

namespace {

bool fixed = false;
const std::tm* fixedTime = nullptr;

}  // namespace

namespace fakes {

LocalTime::LocalTime(const std::tm* time) {
  fixed = true;
  fixedTime = time;
}

LocalTime::~LocalTime() { fixed = false; }

}  // namespace fakes

// In the program's own place of the C library's operation, which it calls when no test says
// otherwise.
extern "C" KAVI_API std::tm* localtime_r(const std::time_t* time, std::tm* result) noexcept {
  if (!fixed) {
    using Operation = std::tm* (*)(const std::time_t*, std::tm*);
    static const auto real = reinterpret_cast<Operation>(dlsym(RTLD_NEXT, "localtime_r"));
    return real(time, result);
  }
  if (fixedTime == nullptr) {
    return nullptr;
  }
  *result = *fixedTime;
  return result;
}
