#include "tests/fakes/capturing_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <ostream>
#include <utility>

#include "tests/fakes/fault_plan.h"

namespace fakes {

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << "L" << line.level << " \"" << line.text << "\"";
}

CapturingLog::~CapturingLog() {
  for (const LogLine& line : lines_) {
    if (line.level == 1) {
      ADD_FAILURE() << "unexpected log line: " << line;
    }
  }
}

int CapturingLog::getLevel() const {
  platformCallFails();  // has no failure result: may only throw
  return level_;
}

void CapturingLog::write(int level, const char* format, ...) {
  platformCallFails();
  const Unswept unswept;
  char text[8192];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  lines_.push_back({level, text});
  if (std::find(formats_.begin(), formats_.end(), format) == formats_.end()) {
    formats_.emplace_back(format);
  }
}

LogLines CapturingLog::takeLines() { return std::exchange(lines_, {}); }

std::vector<std::string> CapturingLog::takeLines(int level) {
  std::vector<std::string> texts;
  for (LogLine& line : takeLines()) {
    if (line.level == level) {
      texts.push_back(std::move(line.text));
    }
  }
  return texts;
}

}  // namespace fakes
