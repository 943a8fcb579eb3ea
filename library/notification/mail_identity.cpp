#include "library/notification/mail_identity.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "library/framework/locale_handle.h"

namespace library {

namespace {

constexpr std::size_t kMaxDate = 255;
constexpr std::size_t kMaxHostName = 255;

// Names of days and months are English, whatever locale the process has.
std::string dateAndTime(const std::tm& local) {
  char buffer[kMaxDate + 1] = {};
  const LocaleHandle english(newlocale(LC_TIME_MASK, "C", nullptr));
  const std::size_t length =
      english != nullptr
          ? strftime_l(buffer, sizeof buffer, "%a, %d %b %Y %H:%M:%S", &local, english.get())
          : std::strftime(buffer, sizeof buffer, "%a, %d %b %Y %H:%M:%S", &local);
  if (length != 0) {
    return buffer;
  }
  char plain[64] = {};
  std::string text = asctime_r(&local, plain) != nullptr ? plain : "";
  while (text.ends_with('\n')) {
    text.pop_back();
  }
  return text;
}

// The zone's offset: how far the same clock reading lies away when it is taken for local time. The
// reading of UTC knows no daylight saving, so that its hour is added.
long offsetSeconds(std::time_t now, const std::tm& local) {
  std::tm utc = {};
  if (gmtime_r(&now, &utc) == nullptr) {
    return 0;
  }
  const auto offset = static_cast<long>(now - std::mktime(&utc));
  return local.tm_isdst > 0 ? offset + 3600 : offset;
}

}  // namespace

std::string mailDate(std::time_t now) {
  std::tm local = {};
  if (localtime_r(&now, &local) == nullptr) {
    return {};
  }
  const long offset = offsetSeconds(now, local);
  const auto distance = static_cast<unsigned long>(offset < 0 ? -offset : offset);
  char zone[48];
  static_cast<void>(std::snprintf(zone, sizeof zone, " %c%02u%02u", offset < 0 ? '-' : '+',
                                  static_cast<unsigned int>(distance / 3600),
                                  static_cast<unsigned int>(distance % 3600 / 60)));
  std::string text = (dateAndTime(local) + zone).substr(0, kMaxDate);
  if (text.ends_with('\n')) {
    text.pop_back();
  }
  return text;
}

std::string mailMessageId(unsigned int scannerId, std::uint64_t time, const char* messageId,
                          const char* host) {
  char buffer[1024];
  static_cast<void>(std::snprintf(buffer, sizeof buffer, "<%X-%X%X-%s@%s>", scannerId,
                                  static_cast<unsigned int>(time >> 32),
                                  static_cast<unsigned int>(time), messageId, host));
  return buffer;
}

std::uint64_t microsecondsNow() {
  using namespace std::chrono;
  const auto now = system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(duration_cast<microseconds>(now).count());
}

std::string hostName() {
  char name[kMaxHostName + 1] = {};
  return ::gethostname(name, kMaxHostName) == 0 ? name : "";
}

}  // namespace library
