#include "gateway/cli/progress.h"

#include <unistd.h>

#include <algorithm>

#include "gateway/cli/json_output.h"
#include "gateway/cli/terminal.h"

namespace gateway::cli {

void Progress::show(std::size_t done, const std::string& brief) {
  constexpr std::chrono::milliseconds kInterval(100);
  constexpr std::size_t kWidth = 24;
  if (!on_) return;
  const auto now = std::chrono::steady_clock::now();
  if (now - last_ < kInterval) return;
  last_ = now;
  const std::size_t filled = total_ != 0 ? std::min(done, total_) * kWidth / total_ : 0;
  std::string line = "[" + std::string(filled, '#') + std::string(kWidth - filled, '.') + "] ";
  line += std::to_string(done) + "/" + std::to_string(total_) + "  " + brief;
  const std::size_t columns = terminalWidth(STDERR_FILENO);
  if (line.size() >= columns) line.resize(columns - 1);
  printAside("\r\x1b[K" + line);
  drawn_ = true;
}

void Progress::clear() {
  if (!drawn_) return;
  printAside("\r\x1b[K");
  drawn_ = false;
}

}  // namespace gateway::cli
