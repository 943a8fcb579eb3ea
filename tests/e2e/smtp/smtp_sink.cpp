#include "tests/e2e/smtp/smtp_sink.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace testing_host {

namespace {

// Reads the line "port N" that the server writes when it listens.
int readPort(int output) {
  std::string line;
  char c = 0;
  while (line.find('\n') == std::string::npos) {
    const ssize_t got = ::read(output, &c, 1);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) throw std::runtime_error("the SMTP sink did not start");
    line += c;
  }
  return std::stoi(line.substr(line.find(' ')));
}

}  // namespace

SmtpSink::SmtpSink(const std::string& script) {
  int input[2];
  int output[2];
  if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe failed");
  }
  std::vector<std::string> words{KAVI_PYTHON,    KAVI_SMTP_SINK, "--out",
                                 folder_.path(), "--script",     script};
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  const int failed =
      ::posix_spawn(&process_, KAVI_PYTHON, &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(input[0]);
  ::close(output[1]);
  input_ = input[1];
  if (failed != 0) throw std::runtime_error("the SMTP sink cannot be run");
  port_ = readPort(output[0]);
  ::close(output[0]);
}

SmtpSink::~SmtpSink() {
  ::close(input_);  // it ends when its input does
  while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

host::delivery::SmtpDestination SmtpSink::destination() const {
  host::delivery::SmtpDestination to;
  to.host = "127.0.0.1";
  to.port = port_;
  return to;
}

std::vector<SinkEvent> SmtpSink::events() const {
  std::vector<SinkEvent> events;
  std::istringstream lines(contentOf(folder_ / "log.jsonl"));
  for (std::string line; std::getline(lines, line);) {
    const nlohmann::json event = nlohmann::json::parse(line, nullptr, false);
    if (event.is_discarded()) break;  // the last line is being written
    events.push_back({event["connection"], event["event"], event["text"]});
  }
  return events;
}

std::vector<std::string> SmtpSink::commands() const {
  std::vector<std::string> commands;
  for (const SinkEvent& event : events()) {
    if (event.kind == "command") commands.push_back(event.text);
  }
  return commands;
}

std::size_t SmtpSink::connections() const {
  const std::vector<SinkEvent> all = events();
  return static_cast<std::size_t>(
      std::count_if(all.begin(), all.end(), [](const auto& e) { return e.kind == "connect"; }));
}

std::vector<std::string> SmtpSink::messages() const {
  std::vector<std::string> messages;
  for (const SinkEvent& event : events()) {
    if (event.kind == "message") messages.push_back(contentOf(folder_ / event.text));
  }
  return messages;
}

std::string SmtpSink::lastMessage() const {
  std::string name;
  for (const SinkEvent& event : events()) {
    if (event.kind == "message") name = event.text;
  }
  return name.empty() ? "" : contentOf(folder_ / name);
}

}  // namespace testing_host
