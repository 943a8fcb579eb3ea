#include "host/store/sqlite_pool.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/core/folder.h"
#include "host/store/file_failure.h"
#include "host/store/making_lock.h"
#include "host/store/schema.h"
#include "host/store/sqlite_connection.h"

namespace host::store {

namespace {

constexpr std::size_t kIdleConnections = 8;

void require(core::FileError error) {
  if (error != core::FileError::None) throw fileFailure(error);
}

// SQLite opens what may only be read as well, and then fails in ways that say little. Asked without
// opening the file: closing it again would take the locks of every other connection with it.
void requireAccess(const core::Folder& folder, const std::string& name) {
  const int access = R_OK | W_OK;
  if (::faccessat(folder.descriptor(), name.c_str(), access, AT_EACCESS) != 0 ||
      ::faccessat(folder.descriptor(), ".", access | X_OK, AT_EACCESS) != 0) {
    throw fileFailure(errno);
  }
}

// The path as SQLite is to read it: "file:x" and ":memory:" are names of files, too.
std::string asFileName(const std::string& path) {
  return path.empty() || path.front() == '/' ? path : "./" + path;
}

// The folder and the name in it.
std::pair<std::string, std::string> split(const std::string& path) {
  if (const std::string fault = sqlitePathFault(path); !fault.empty()) {
    throw StoreFailure(StoreError::InvalidArgument, fault);
  }
  const std::size_t slash = path.rfind('/');
  return {path.substr(0, slash + 1), path.substr(slash + 1)};
}

// Refuses what is no file, and a link that somebody else has put there: it leads where that person
// wants.
void requireOwnFile(const core::Folder& folder, const std::string& name) {
  struct stat link {};
  struct stat target {};
  if (::fstatat(folder.descriptor(), name.c_str(), &link, AT_SYMLINK_NOFOLLOW) != 0) return;
  const bool there = ::fstatat(folder.descriptor(), name.c_str(), &target, 0) == 0;
  if (there && !S_ISREG(target.st_mode)) {
    throw StoreFailure(StoreError::Unavailable, "its path names no file");
  }
  const bool isOwn = !S_ISLNK(link.st_mode) || link.st_uid == 0 || link.st_uid == ::geteuid();
  if (!isOwn && (!there || target.st_uid != link.st_uid)) {
    throw StoreFailure(StoreError::Permission, "its path is a link that another user has made");
  }
}

// A store that root makes in the folder of another user is for that user. SQLite gives the files
// beside it to the same.
void giveToOwner(const core::Folder& folder, int file) {
  struct stat owner {};
  if (::geteuid() != 0 || ::fstat(folder.descriptor(), &owner) != 0 || owner.st_uid == 0) return;
  if (::fchown(file, owner.st_uid, owner.st_gid) != 0) throw fileFailure(errno);
}

// The same for what a link leads to: the database library names its files by that.
void requireOwnTarget(const std::string& path) {
  std::error_code error;
  const std::filesystem::path target = std::filesystem::canonical(path, error);
  if (!error) split(target.string());
}

}  // namespace

std::string sqlitePathFault(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  if (name.empty() || name == "." || name == ".." || path.find('\0') != std::string::npos) {
    return "its path names no file";
  }
  for (const std::string_view end : {"-wal", "-shm", "-journal", kLockEnd}) {
    if (name.ends_with(end)) {
      return "a name that ends in " + std::string(end) +
             " is that of a file which belongs to the store beside it; choose another";
    }
  }
  return {};
}

SqlitePool::SqlitePool(const std::string& path, int busyTimeoutMs, Upkeep upkeep,
                       core::FileOps& ops)
    : path_(asFileName(path)), busyTimeoutMs_(busyTimeoutMs), upkeep_(upkeep), ops_(ops) {}

std::unique_ptr<Connection> SqlitePool::take() {
  const std::lock_guard lock(mutex_);
  // A file that was moved away or replaced would go on taking what nobody ever reads again.
  if (!idle_.empty() && identity() != opened_) idle_.clear();
  if (idle_.empty()) return upkeep_ == Upkeep::Refuse ? openExisting() : open();
  std::unique_ptr<Connection> connection = std::move(idle_.back());
  idle_.pop_back();
  return connection;
}

void SqlitePool::giveBack(std::unique_ptr<Connection> connection) {
  const std::lock_guard lock(mutex_);
  if (idle_.size() < kIdleConnections) idle_.push_back(std::move(connection));
}

void SqlitePool::dropIdle() {
  const std::lock_guard lock(mutex_);
  idle_.clear();
}

SqlitePool::Identity SqlitePool::identity() const {
  struct stat status {};
  if (::stat(path_.c_str(), &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

std::unique_ptr<Connection> SqlitePool::look() {
  const auto [folderPath, name] = split(path_);
  core::Folder folder(ops_);
  const core::FileError opened = folder.open(folderPath, false);
  if (opened == core::FileError::MissingFolder) return nullptr;
  require(opened);
  requireOwnFile(folder, name);
  requireOwnTarget(path_);
  struct stat status {};
  const bool there = ::fstatat(folder.descriptor(), name.c_str(), &status, 0) == 0;
  if (!there && errno != ENOENT) throw fileFailure(errno);
  if (!there || status.st_size == 0) return nullptr;
  requireAccess(folder, name);
  return std::make_unique<SqliteConnection>(path_, busyTimeoutMs_);
}

std::unique_ptr<Connection> SqlitePool::openExisting() {
  const Identity present = identity();
  std::unique_ptr<Connection> connection = look();
  if (connection == nullptr) throw StoreFailure(StoreError::Unavailable, kMissingStore);
  requireNewest(*connection, schemaSteps());
  // What was put in its place meanwhile is found with the next connection.
  opened_ = present;
  return connection;
}

// What nobody has to make or bring forward is opened without a lock. Null otherwise.
std::unique_ptr<Connection> SqlitePool::openNewest() {
  const Identity present = identity();
  try {
    std::unique_ptr<Connection> connection = look();
    if (connection == nullptr || !isNewest(*connection, schemaSteps())) return nullptr;
    opened_ = present;
    return connection;
  } catch (const StoreFailure& failure) {
    // Somebody else may be making it.
    if (failure.error() != StoreError::Busy) throw;
    return nullptr;
  }
}

std::unique_ptr<Connection> SqlitePool::open() {
  if (std::unique_ptr<Connection> connection = openNewest()) return connection;
  const auto [folderPath, name] = split(path_);
  core::Folder folder(ops_);
  require(folder.open(folderPath, true));
  requireOwnFile(folder, name);
  requireOwnTarget(path_);
  // Two that switch to the write-ahead log, or make the tables, at once would get in each other's
  // way instead of waiting.
  const MakingLock lock(folder, name, busyTimeoutMs_);
  const int made = ops_.openFile(folder.descriptor(), name, O_RDWR | O_CREAT | O_EXCL);
  if (made >= 0) {
    const core::Descriptor file(ops_, made);
    giveToOwner(folder, made);
  } else if (made != -EEXIST) {
    throw fileFailure(-made);
  }
  requireAccess(folder, name);
  // Before it has anything in it: whoever finds a complete store does not look at the folder.
  require(folder.sync());
  auto connection = std::make_unique<SqliteConnection>(path_, busyTimeoutMs_);
  migrate(*connection, schemaSteps());
  opened_ = identity();
  return connection;
}

}  // namespace host::store
