// One store, many users at once.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/store/sqlite_store.h"
#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using namespace host::store;
using testing_host::TempFolder;

constexpr int kUsers = 8;
constexpr int kRowsEach = 12;

bool addRows(Store& store, int user) {
  for (int i = 0; i < kRowsEach; ++i) {
    IndexEntry entry;
    entry.path = "/" + std::to_string(user) + "/" + std::to_string(i);
    std::int64_t row = 0;
    if (!store.addEntry(entry, nullptr, row).ok()) return false;
    std::vector<IndexEntry> entries;
    if (!store.list({{}, {}, row - 1, 1}, entries).ok()) return false;
    if (entries.size() != 1 || entries[0].path != entry.path) return false;
  }
  return true;
}

void expectEveryRowOnce(Store& store) {
  std::vector<IndexEntry> entries;
  ASSERT_TRUE(store.list({{}, {}, 0, 10'000}, entries).ok());
  EXPECT_EQ(entries.size(), static_cast<std::size_t>(kUsers * kRowsEach));
  std::set<std::string> paths;
  for (const IndexEntry& entry : entries) paths.insert(entry.path);
  EXPECT_EQ(paths.size(), entries.size());
}

TEST(SqliteSharing, ServesThreads) {
  const TempFolder temp;
  SqliteStore store(temp / "store");
  std::atomic<int> failures = 0;
  std::vector<std::thread> threads;
  for (int user = 0; user < kUsers; ++user) {
    threads.emplace_back([&store, &failures, user] {
      if (!addRows(store, user)) ++failures;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
  expectEveryRowOnce(store);
}

TEST(SqliteSharing, ServesProcessesThatStartTogether) {
  const TempFolder temp;
  int gate[2];
  ASSERT_EQ(::pipe(gate), 0);
  std::vector<pid_t> children;
  for (int user = 0; user < kUsers; ++user) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::close(gate[1]);
      char byte = 0;
      // All wait for the end of the pipe, and then make the store at the same time.
      if (::read(gate[0], &byte, 1) != 0) ::_exit(2);
      bool good = false;
      {
        SqliteStore store(temp / "store");
        good = addRows(store, user);
      }
      ::_exit(good ? 0 : 1);
    }
    children.push_back(child);
  }
  ::close(gate[0]);
  ::close(gate[1]);
  for (const pid_t child : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  SqliteStore store(temp / "store");
  expectEveryRowOnce(store);
}

// Locks \p path as flock(1) does, for as long as this object lives.
class HeldLock {
 public:
  explicit HeldLock(const std::string& path, int flags) : file_(::open(path.c_str(), flags, 0600)) {
    EXPECT_EQ(::flock(file_, LOCK_EX | LOCK_NB), 0) << path;
  }
  ~HeldLock() { ::close(file_); }
  HeldLock(const HeldLock&) = delete;
  HeldLock& operator=(const HeldLock&) = delete;

 private:
  int file_;
};

TEST(SqliteSharing, MindsNobodyWhoLocksItsFolder) {
  const TempFolder temp;
  const HeldLock held(temp.path(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  SqliteOptions options{200};
  SqliteStore made(temp / "store", options);
  EXPECT_TRUE(made.prepare().ok());
  options.upkeep = Upkeep::Refuse;
  SqliteStore used(temp / "store", options);
  EXPECT_TRUE(used.prepare().ok());
}

TEST(SqliteSharing, WaitsAWhileForWhoeverMakesIt) {
  const TempFolder temp;
  SqliteStore store(temp / "store", SqliteOptions{200});
  {
    const HeldLock held(temp / "store-kavi-lock", O_RDWR | O_CREAT | O_CLOEXEC);
    const StoreStatus status = store.prepare();
    EXPECT_EQ(status.error, StoreError::Busy);
    EXPECT_NE(status.text.find("holds the lock store-kavi-lock beside it"), std::string::npos)
        << status.text;
    EXPECT_FALSE(std::filesystem::exists(temp / "store"));
  }
  EXPECT_TRUE(store.prepare().ok());
  EXPECT_FALSE(std::filesystem::exists(temp / "store-kavi-lock")) << "it goes with the lock";
}

TEST(SqliteSharing, LocksNothingOnceItIsMade) {
  const TempFolder temp;
  ASSERT_TRUE(SqliteStore(temp / "store").prepare().ok());
  const HeldLock held(temp / "store-kavi-lock", O_RDWR | O_CREAT | O_CLOEXEC);
  EXPECT_TRUE(SqliteStore(temp / "store", SqliteOptions{200}).prepare().ok());
}

TEST(SqliteSharing, LetsOneOfManyBeginAnEffect) {
  const TempFolder temp;
  SqliteStore store(temp / "store");
  const EffectKey key;
  std::atomic<int> begun = 0;
  std::atomic<int> underWay = 0;
  std::vector<std::thread> threads;
  for (int user = 0; user < kUsers; ++user) {
    threads.emplace_back([&, user] {
      EffectAnswer answer;
      const EffectClaim claim{std::to_string(user), 1000, 60, {}};
      if (!store.beginEffect(key, claim, answer).ok()) return;
      if (answer.state == EffectState::Begun) ++begun;
      if (answer.state == EffectState::UnderWay) ++underWay;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(begun, 1);
  EXPECT_EQ(underWay, kUsers - 1);
}

}  // namespace
