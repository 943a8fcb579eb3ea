// Running a piece of a test in a process of its own.
#pragma once

#include <grp.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

namespace testing_host {

/// What a child answers when this system does not let it do what it needs.
inline constexpr int kNotPermitted = 77;

/// Runs \p body in a child. \return what it returned, or 128 plus the signal that ended it.
template <class Body>
int inChild(Body body) {
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    int result = 126;
    try {
      result = body();
    } catch (...) {
      result = 125;
    }
    ::_exit(result);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// Gives up root for good; nothing to do for anyone else.
inline bool becomeUnprivileged() {
  constexpr unsigned int kNobody = 65534;
  if (::geteuid() != 0) return true;
  return ::setgroups(0, nullptr) == 0 && ::setresgid(kNobody, kNobody, kNobody) == 0 &&
         ::setresuid(kNobody, kNobody, kNobody) == 0;
}

/// Limits the size of the files that this process writes, without being killed for it.
inline bool limitFileSize(rlim_t bytes) {
  const rlimit limit{bytes, bytes};
  return ::signal(SIGXFSZ, SIG_IGN) != SIG_ERR && ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

/// Mounts a small file system on \p folder that only this process sees.
inline bool mountSmallDisk(const char* folder, const char* options) {
  return ::unshare(CLONE_NEWNS) == 0 &&
         ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("none", folder, "tmpfs", 0, options) == 0;
}

}  // namespace testing_host
