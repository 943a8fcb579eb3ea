#include "host/core/unique_id.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <system_error>

namespace host::core {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";
constexpr int kTimeDigits = 14;  // good for two thousand years
constexpr std::size_t kRandomBytes = 9;

}  // namespace

std::string makeUniqueId() {
  std::array<unsigned char, kRandomBytes> random{};
  // Requests of up to 256 bytes are answered whole, or not at all.
  while (::getrandom(random.data(), random.size(), 0) < 0) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "getrandom");
  }
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto microseconds = static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(now).count());
  std::string id;
  id.reserve(kTimeDigits + 2 * kRandomBytes);
  for (int shift = 4 * (kTimeDigits - 1); shift >= 0; shift -= 4) {
    id += kHexDigits[(microseconds >> shift) & 15];
  }
  for (const unsigned char byte : random) {
    id += kHexDigits[byte >> 4];
    id += kHexDigits[byte & 15];
  }
  return id;
}

}  // namespace host::core
