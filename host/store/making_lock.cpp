#include "host/store/making_lock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include "host/store/file_failure.h"

namespace host::store {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kBetweenTries{10};

// Whether the folder still has the open file under that name: whoever held the lock took it away.
bool isThere(const core::Folder& folder, const std::string& name, int file) {
  struct stat open {};
  struct stat named {};
  return ::fstat(file, &open) == 0 &&
         ::fstatat(folder.descriptor(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

// Root works on the store of another user, who must be able to lock it, too, when root's process
// ends before it can clear up.
void giveToOwnerOf(const core::Folder& folder, const std::string& store, int file) {
  struct stat status {};
  if (::geteuid() != 0 || ::fstatat(folder.descriptor(), store.c_str(), &status, 0) != 0) return;
  // The lock holds in any case.
  [[maybe_unused]] const int given = ::fchown(file, status.st_uid, status.st_gid);
}

}  // namespace

MakingLock::MakingLock(const core::Folder& folder, const std::string& store, int patienceMs)
    : folder_(folder), name_(store + kLockEnd) {
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(patienceMs);
  // There is no call that waits for such a lock and no longer than a while.
  while (!tryOnce(store)) {
    if (Clock::now() >= end) {
      throw StoreFailure(StoreError::Busy, "another program, which fuser tells, holds the lock " +
                                               name_ + " beside it");
    }
    std::this_thread::sleep_for(kBetweenTries);
  }
}

MakingLock::~MakingLock() {
  // While it is locked: who waits for it finds that it is gone, and makes another.
  folder_.ops().unlink(folder_.descriptor(), name_);
}

bool MakingLock::tryOnce(const std::string& store) {
  core::FileOps& ops = folder_.ops();
  const int opened = ops.openFile(folder_.descriptor(), name_, O_RDWR | O_CREAT);
  if (opened < 0) throw fileFailure(-opened, "its lock " + name_);
  core::Descriptor file(ops, opened);
  const int locked = ops.lock(opened, false);
  if (locked < 0 && locked != -EWOULDBLOCK) throw fileFailure(-locked, "its lock " + name_);
  if (locked < 0 || !isThere(folder_, name_, opened)) return false;
  giveToOwnerOf(folder_, store, opened);
  file_ = std::move(file);
  return true;
}

}  // namespace host::store
