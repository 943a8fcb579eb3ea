#include "tests/e2e/trap/snmp_trapd.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <stdexcept>

namespace testing_host {

namespace {

constexpr int kPatienceMs = 10000;
// Enterprise, generic, specific, security, variables; "^" is in none of them. Texts come in
// hexadecimal (-Ox), so that they are one line whatever they hold.
constexpr char kFormat[] = "TRAP^%N^%w^%q^%P^%v^\n";

/// A loopback UDP socket. \param port  0 for a free one. \return -1 when the port is taken.
int bindUdp(int port, int& bound) {
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    ::close(fd);
    return -1;
  }
  socklen_t size = sizeof address;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  bound = ntohs(address.sin_port);
  return fd;
}

int freePort() {
  int port = 0;
  ::close(bindUdp(0, port));
  return port;
}

bool isTaken(int port) {
  int bound = 0;
  const int fd = bindUdp(port, bound);
  if (fd >= 0) ::close(fd);
  return fd < 0;
}

}  // namespace

std::string ReceivedTrap::text() const {
  const std::string mark = "Hex-STRING: ";
  const std::size_t at = variables.rfind(mark);
  std::string bytes;
  if (at == std::string::npos) return bytes;
  std::istringstream words(variables.substr(at + mark.size()));
  for (std::string word; words >> word && word.size() == 2;) {
    bytes += static_cast<char>(std::stoi(word, nullptr, 16));
  }
  return bytes;
}

SnmpTrapd::SnmpTrapd() : port_(freePort()) {
  writeFile(folder_ / "conf", "disableAuthorization yes\n");
  int output[2];
  if (::pipe2(output, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
  std::vector<std::string> words{KAVI_SNMPTRAPD,   "-f",  "-Lo", "-n", "-C",    "-c",
                                 folder_ / "conf", "-On", "-Ox", "-F", kFormat, "udp:" + server()};
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  std::string noMibs = "MIBS=";
  std::string state = "SNMP_PERSISTENT_DIR=" + folder_.path();
  char* const environment[] = {noMibs.data(), state.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  const int failed =
      ::posix_spawn(&process_, KAVI_SNMPTRAPD, &actions, nullptr, arguments.data(), environment);
  posix_spawn_file_actions_destroy(&actions);
  ::close(output[1]);
  output_ = output[0];
  if (failed != 0) throw std::runtime_error("snmptrapd cannot be run");
  for (int waited = 0; !isTaken(port_); waited += 5) {
    if (waited > kPatienceMs) throw std::runtime_error("snmptrapd does not listen");
    ::poll(nullptr, 0, 5);
  }
}

SnmpTrapd::~SnmpTrapd() {
  ::kill(process_, SIGTERM);
  while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
  ::close(output_);
}

// One line of output; empty when none comes in time.
std::string SnmpTrapd::readLine() {
  std::size_t end = 0;
  while ((end = pending_.find('\n')) == std::string::npos) {
    pollfd ready{output_, POLLIN, 0};
    if (::poll(&ready, 1, kPatienceMs) <= 0) return {};
    char buffer[4096];
    const ssize_t got = ::read(output_, buffer, sizeof buffer);
    if (got <= 0) return {};
    pending_.append(buffer, static_cast<std::size_t>(got));
  }
  std::string line = pending_.substr(0, end + 1);
  pending_.erase(0, end + 1);
  return line;
}

std::vector<ReceivedTrap> SnmpTrapd::take(std::size_t count) {
  std::vector<ReceivedTrap> traps;
  while (traps.size() < count) {
    std::string line = readLine();
    if (line.empty()) break;
    if (!line.starts_with("TRAP^")) continue;
    // Long texts are shown on several lines.
    for (std::string more; !line.ends_with("^\n"); line += more) {
      more = readLine();
      if (more.empty()) return traps;
      line.back() = ' ';
    }
    std::istringstream fields(line);
    std::string mark;
    ReceivedTrap trap;
    std::getline(fields, mark, '^');
    std::getline(fields, trap.enterprise, '^');
    std::getline(fields, trap.generic, '^');
    std::getline(fields, trap.specific, '^');
    std::getline(fields, trap.security, '^');
    std::getline(fields, trap.variables, '^');
    if (trap.specific.starts_with('.')) trap.specific.erase(0, 1);  // as -On has it
    traps.push_back(trap);
  }
  return traps;
}

}  // namespace testing_host
