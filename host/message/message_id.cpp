#include "host/message/message_id.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <system_error>

namespace host::message {

namespace {

constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
constexpr int kRandomDigits = 20;  // 103 bits
constexpr int kTimeDigits = 12;

void fillRandom(void* bytes, std::size_t size) {
  auto* at = static_cast<char*>(bytes);
  while (size > 0) {
    const ssize_t count = ::getrandom(at, size, 0);
    if (count < 0) {
      if (errno == EINTR) continue;
      throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    at += count;
    size -= static_cast<std::size_t>(count);
  }
}

}  // namespace

std::string newMessageId() {
  std::string id;
  // 32 bits to a digit: what the division favours is beyond measure.
  std::array<std::uint32_t, kRandomDigits> random{};
  fillRandom(random.data(), sizeof random);
  for (const std::uint32_t number : random) id += kDigits[number % 36];
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  auto micros = static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(now).count());
  std::string time(kTimeDigits, '0');
  for (int i = kTimeDigits - 1; i >= 0; --i) {
    time[static_cast<std::size_t>(i)] = kDigits[micros % 36];
    micros /= 36;
  }
  return id + time;
}

}  // namespace host::message
