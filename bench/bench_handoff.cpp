// Hand-off of messages over one connection, beside Postfix's smtp-source, to Postfix's smtp-sink.
// Prints the ratio of the rates. Both send the same number of messages of the same size in turns;
// the best turn of each counts, since the machine may do something else meanwhile. The server has
// one processor and the sender another: left to itself, the system now and then puts both on one,
// and the rates double or halve.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "host/delivery/local_adapter.h"
#include "host/message/message.h"
#include "tests/unit/host/core/temp_folder.h"

extern char** environ;

namespace {

using namespace host::delivery;
using Clock = std::chrono::steady_clock;

constexpr int kMessages = 500;
constexpr int kTurns = 10;
constexpr std::size_t kMessageBytes = 10'000;
constexpr double kWanted = 0.8;

pid_t start(std::vector<std::string> words) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = -1;
  const int failed =
      ::posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) throw std::runtime_error("cannot run " + words[0] + ": is postfix installed?");
  return child;
}

int finish(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// Leaves this process, and those that it starts from now on, one processor of those that it had:
// the first, or the last.
void useProcessor(bool last) {
  static const cpu_set_t kAllowed = [] {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    ::sched_getaffinity(0, sizeof allowed, &allowed);
    return allowed;
  }();
  cpu_set_t one;
  CPU_ZERO(&one);
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (!CPU_ISSET(cpu, &kAllowed)) continue;
    CPU_ZERO(&one);
    CPU_SET(cpu, &one);
    if (!last) break;
  }
  ::sched_setaffinity(0, sizeof one, &one);
}

int freePort() {
  const int holder = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  if (::bind(holder, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      ::getsockname(holder, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("no free port");
  }
  ::close(holder);
  return ntohs(address.sin_port);
}

// smtp-sink while it lives.
class Sink {
 public:
  Sink() : port_(freePort()) {
    useProcessor(false);
    process_ = start({"smtp-sink", "-u", "postfix", "-c", place(), "1000"});
    useProcessor(true);
    for (int tries = 0; tries < 500; ++tries) {
      const int probe = ::socket(AF_INET, SOCK_STREAM, 0);
      const sockaddr_in address = loopback(port_);
      const int connected =
          ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address);
      ::close(probe);
      if (connected == 0) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    throw std::runtime_error("smtp-sink does not listen");
  }
  ~Sink() {
    ::kill(process_, SIGTERM);
    finish(process_);
  }
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;

  int port() const { return port_; }
  std::string place() const { return "127.0.0.1:" + std::to_string(port_); }

 private:
  int port_;
  pid_t process_ = -1;
};

double rateSince(Clock::time_point begin) {
  return kMessages / std::chrono::duration<double>(Clock::now() - begin).count();
}

double rateOfSource(const Sink& sink) {
  const auto begin = Clock::now();
  const pid_t source = start({"smtp-source", "-d", "-s", "1", "-m", std::to_string(kMessages), "-l",
                              std::to_string(kMessageBytes), "-f", "sender@example.org", "-t",
                              "rcpt@example.com", sink.place()});
  if (finish(source) != 0) throw std::runtime_error("smtp-source failed");
  return rateSince(begin);
}

class HandOff {
 public:
  explicit HandOff(const Sink& sink) : sink_(sink) {
    std::string bytes = "Subject: bench\r\n\r\n";
    while (bytes.size() < kMessageBytes) bytes += "a line of seventy-eight characters or so\r\n";
    message_ = host::message::Message::parse(host::message::Buffer::adopt(std::move(bytes)));
    message_->setEnvelope({"sender@example.org", {"rcpt@example.com"}, ""});
    settings_.helloName = "gateway.example.org";
    if (state_.open(folder_ / "state") != AdapterError::None) throw std::runtime_error("state");
  }

  double rate() {
    LocalAdapter adapter(state_, &settings_);
    const auto begin = Clock::now();
    for (int count = 0; count < kMessages; ++count) {
      unsigned int error = 0;
      if (adapter.handoffMessage(error, message_.get(), "127.0.0.1", sink_.port()) != 0) {
        throw std::runtime_error(adapterErrorText(error));
      }
    }
    return rateSince(begin);
  }

 private:
  const Sink& sink_;
  testing_host::TempFolder folder_;
  DeliveryState state_;
  DeliverySettings settings_;
  std::unique_ptr<host::message::Message> message_;
};

}  // namespace

int main() {
  try {
    const Sink sink;
    HandOff handOff(sink);
    double ours = 0;
    double theirs = 0;
    for (int turn = 0; turn < kTurns; ++turn) {
      theirs = std::max(theirs, rateOfSource(sink));
      ours = std::max(ours, handOff.rate());
    }
    const double ratio = ours / theirs;
    std::printf(
        "hand-off %.0f messages/s, smtp-source %.0f messages/s: ratio %.2f (wanted: %.1f)\n", ours,
        theirs, ratio, kWanted);
    return ratio >= kWanted ? 0 : 1;
  } catch (const std::exception& fault) {
    std::fprintf(stderr, "bench_handoff: %s\n", fault.what());
    return 2;
  }
}
