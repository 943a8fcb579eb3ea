#include "gateway/cli/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "gateway/cli/startup.h"

namespace gateway::cli {
namespace {

std::string& changeMade() {
  static std::string change;
  return change;
}

}  // namespace

void holdStandardDescriptors() {
  // Opened the wrong way round: what cannot be read or written is an error, not silence. An open
  // takes the lowest free number, which is the one just found closed.
  constexpr int kModes[] = {O_WRONLY, O_RDONLY, O_WRONLY};
  for (int descriptor = 0; descriptor <= STDERR_FILENO; ++descriptor) {
    if (::fcntl(descriptor, F_GETFD) < 0) ::open("/dev/null", kModes[descriptor]);
  }
}

void ignoreBrokenPipes() { static_cast<void>(std::signal(SIGPIPE, SIG_IGN)); }

void noteChange(const std::string& change) {
  ignoreBrokenPipes();
  changeMade() = change;
}

int finishOutput(int status) {
  const bool flushed = std::fflush(stdout) == 0;
  // The error mark stays set once a write has failed, also when later ones were buffered.
  if (flushed && std::ferror(stdout) == 0) return status;
  std::string text = "standard output cannot be written";
  if (!flushed) text += std::string(" (") + std::strerror(errno) + ")";
  if (!changeMade().empty()) text += "; the change WAS made all the same: " + changeMade();
  complain(text);
  return status == 0 ? 1 : status;
}

}  // namespace gateway::cli
