// The division of long lines against its literal steps. Input: one byte that chooses the charset,
// two bytes of the limit, then the text.
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

#include "library/actions/modification/long_lines.h"
#include "library/platform/global_setting.h"
#include "library/platform/log_msg.h"
#include "library/tokens/action_utils.h"
#include "tests/unit/library/actions/modification/support/long_lines_oracle.h"

namespace {

constexpr const char* kCharsets[] = {
    "us-ascii",    "utf-8",    "iso-2022-jp", "iso-2022-kr",       "iso-2022-cn",
    "hz",          "utf-7",    "shift_jis",   "gb18030",           "euc-tw-2014",
    "big5-hkscs",  "utf-16",   "utf-16be",    "utf-32le",          "scsu",
    "bocu-1",      "lmbcs",    "cesu-8",      "x11-compound-text", "imap-mailbox-name",
    "ibm-939",     "ibm-930",  "euc-jp",      "windows-1252",      "koi8-r",
    "iso-8859-15", "ibm-1388", "ibm-1399",    "iso-2022-jp-2",     "no-such-charset",
};

class NoSettings : public Kavi::GlobalSetting {
 public:
  int getString(const char* /*key*/, std::string& /*value*/, const char* /*section*/,
                int /*flags*/) override {
    return 1;
  }
  int getInt(const char* /*key*/, int& /*value*/, const char* /*section*/, int /*flags*/) override {
    return 1;
  }
};

class Failures : public Kavi::LogMsg {
 public:
  int getLevel() const override { return 1; }
  void write(int /*level*/, const char* format, ...) override
      __attribute__((format(printf, 3, 4))) {
    char line[100];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    lines.emplace_back(line);
  }
  std::vector<std::string> lines;
};

Failures& logOfThisProcess() {
  static Failures log;
  static NoSettings settings;
  static const bool started = ActionUtils::init(settings, log);
  if (!started) {
    std::abort();
  }
  return log;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3) {
    return 0;
  }
  const char* const charset = kCharsets[data[0] % std::size(kCharsets)];
  const int limit = (data[1] << 8 | data[2]) % 1000;
  const std::string text(reinterpret_cast<const char*>(data) + 3, size - 3);

  Failures& log = logOfThisProcess();
  log.lines.clear();
  std::string divided = text;
  std::string expected = text;
  std::vector<std::string> expectedLog;
  const bool result = library::divideLongLines(divided, charset, limit);
  if (result != oracle::modifyIfHasLimitLine(expected, charset, limit, expectedLog) ||
      divided != expected || log.lines != expectedLog) {
    std::abort();
  }
  return 0;
}
