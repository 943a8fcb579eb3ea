#include "gateway/milter/signals.h"

#include <csignal>
#include <utility>

namespace gateway::milter {
namespace {

sigset_t reloadSet() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR1);
  return set;
}

}  // namespace

void blockSignals() {
  sigset_t set = reloadSet();
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGHUP);
  sigaddset(&set, SIGINT);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  // A mail system that goes away, and a file size limit, are errors of a call and no end.
  static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
  static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
}

ReloadSignal::ReloadSignal(std::function<void()> reload)
    : reload_(std::move(reload)), thread_([this] {
        const sigset_t set = reloadSet();
        int signal = 0;
        while (sigwait(&set, &signal) == 0 && !ended_) reload_();
      }) {}

ReloadSignal::~ReloadSignal() {
  ended_ = true;
  pthread_kill(thread_.native_handle(), SIGUSR1);
  thread_.join();
}

}  // namespace gateway::milter
