// The process log in memory.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "library/platform/log_msg.h"

namespace fakes {

struct LogLine {
  int level;
  std::string text;

  bool operator==(const LogLine&) const = default;
};
using LogLines = std::vector<LogLine>;

std::ostream& operator<<(std::ostream& out, const LogLine& line);

/// Keeps every line that is written. A test takes the lines that it expects; a line of level 1
/// that nobody took by the time the log is destroyed fails the test.
class CapturingLog : public Kavi::LogMsg {
 public:
  explicit CapturingLog(int level = 3) : level_(level) {}
  ~CapturingLog() override;

  int getLevel() const override;
  void write(int level, const char* format, ...) override __attribute__((format(printf, 3, 4)));

  void setLevel(int level) { level_ = level; }
  /// The lines written since the last call, in order.
  LogLines takeLines();
  /// The same, those of one level; the others are dropped.
  std::vector<std::string> takeLines(int level);
  /// The formats with which lines were written, each once.
  const std::vector<std::string>& formats() const { return formats_; }

 private:
  int level_;
  LogLines lines_;
  std::vector<std::string> formats_;
};

}  // namespace fakes
