#include "tests/e2e/postgres/postgres_server.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <thread>

namespace testing_host {

namespace {

constexpr char kPrograms[] = "/usr/lib/postgresql/15/bin/";

// The server refuses to run as root.
const passwd* unprivileged() {
  const passwd* user = ::getpwnam("postgres");
  return user != nullptr ? user : ::getpwnam("nobody");
}

[[noreturn]] void become(const std::vector<std::string>& command, const std::string& log) {
  if (::geteuid() == 0) {
    const passwd* user = unprivileged();
    if (user == nullptr || ::setgroups(0, nullptr) != 0 || ::setgid(user->pw_gid) != 0 ||
        ::setuid(user->pw_uid) != 0) {
      ::_exit(126);
    }
  }
  const int out = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  const int in = ::open("/dev/null", O_RDONLY);
  if (out < 0 || in < 0 || ::chdir("/") != 0) ::_exit(126);
  ::dup2(in, 0);
  ::dup2(out, 1);
  ::dup2(out, 2);
  std::vector<char*> arguments;
  for (const std::string& argument : command)
    arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  ::execv(arguments[0], arguments.data());
  ::_exit(127);
}

}  // namespace

PostgresServer::PostgresServer() {
  if (::geteuid() == 0) {
    const passwd* user = unprivileged();
    if (user == nullptr || ::chown(folder_.path().c_str(), user->pw_uid, user->pw_gid) != 0) {
      throw std::runtime_error("no unprivileged user for the server");
    }
  }
  run({std::string(kPrograms) + "initdb", "-D", data_, "-U", "kavi", "-A", "trust", "-E", "UTF8",
       "--locale=C", "--no-sync"});
  start();
}

PostgresServer::~PostgresServer() {
  try {
    if (running_) stopAtOnce();
  } catch (const std::exception&) {
    return;  // it may have ended by itself
  }
}

PostgresServer& PostgresServer::shared() {
  static PostgresServer server;
  return server;
}

void PostgresServer::run(const std::vector<std::string>& command) const {
  const std::string log = folder_ / "log";
  const pid_t child = ::fork();
  if (child == 0) become(command, log);
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child || status != 0) {
    throw std::runtime_error(command[0] + " failed; is PostgreSQL 15 installed?\n" +
                             contentOf(log));
  }
}

void PostgresServer::start() {
  run({std::string(kPrograms) + "pg_ctl", "-D", data_, "-w", "-t", "60", "-o",
       "-k " + folder_.path() + " -c listen_addresses='' -c fsync=off", "start"});
  running_ = true;
}

void PostgresServer::stopAtOnce() {
  running_ = false;
  run({std::string(kPrograms) + "pg_ctl", "-D", data_, "-w", "-t", "60", "-m", "immediate",
       "stop"});
}

void PostgresServer::killAndStart() {
  running_ = false;
  const pid_t server = std::stoi(contentOf(data_ + "/postmaster.pid"));
  if (::kill(server, SIGKILL) != 0) throw std::runtime_error("the server cannot be killed");
  // Its children notice; while one of them is left, no other server comes up.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!running_) {
    try {
      start();
    } catch (const std::runtime_error&) {
      if (std::chrono::steady_clock::now() > end) throw;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
}

std::string PostgresServer::locationOf(const std::string& database) const {
  return "postgresql://kavi@/" + database + "?host=" + folder_.path();
}

std::string PostgresServer::makeDatabase() {
  const std::string name = "test" + std::to_string(++databases_);
  run({std::string(kPrograms) + "psql", "-q", "-h", folder_.path(), "-U", "kavi", "-d", "postgres",
       "-c", "CREATE DATABASE " + name});
  return locationOf(name);
}

}  // namespace testing_host
