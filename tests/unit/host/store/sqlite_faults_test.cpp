// Stores that the system, or somebody else's hand, has spoilt.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "host/store/sqlite_connection.h"
#include "host/store/sqlite_store.h"
#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/failing_ops.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using namespace host::store;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using testing_host::inChild;
using testing_host::kNotPermitted;
using testing_host::TempFolder;

StoreStatus add(Store& store, const std::string& path, std::size_t subjectBytes = 0) {
  IndexEntry entry;
  entry.path = path;
  entry.subject.assign(subjectBytes, 's');
  std::int64_t row = 0;
  return store.addEntry(entry, nullptr, row);
}

std::size_t rowCount(Store& store) {
  std::vector<IndexEntry> entries;
  EXPECT_TRUE(store.list({{}, {}, 0, 1'000'000}, entries).ok());
  return entries.size();
}

// Makes a store that everybody may reach and read.
void makeReadable(const TempFolder& temp, mode_t fileMode, mode_t folderMode) {
  {
    SqliteStore store(temp / "state/store");
    ASSERT_TRUE(add(store, "/x").ok());
  }
  ::chmod(temp.path().c_str(), 0755);
  ::chmod((temp / "state/store").c_str(), fileMode);
  ::chmod((temp / "state").c_str(), folderMode);
}

int errorAsNobody(const std::string& path) {
  return inChild([&] {
    if (!testing_host::becomeUnprivileged()) return kNotPermitted;
    SqliteStore store(path);
    return static_cast<int>(add(store, "/y").error);
  });
}

TEST(SqliteFaults, SaysThatThisUserMayNotReadIt) {
  const TempFolder temp;
  makeReadable(temp, 0600, 0755);
  EXPECT_EQ(errorAsNobody(temp / "state/store"), static_cast<int>(StoreError::Permission));
}

TEST(SqliteFaults, SaysThatThisUserMayNotEnterItsFolder) {
  const TempFolder temp;
  makeReadable(temp, 0644, 0700);
  EXPECT_EQ(errorAsNobody(temp / "state/store"), static_cast<int>(StoreError::Permission));
}

TEST(SqliteFaults, SaysThatThisUserMayNotWriteIt) {
  const TempFolder temp;
  makeReadable(temp, 0644, 0777);
  EXPECT_EQ(errorAsNobody(temp / "state/store"), static_cast<int>(StoreError::Permission));
}

TEST(SqliteFaults, SaysThatThisUserMayNotWriteBesideIt) {
  const TempFolder temp;
  makeReadable(temp, 0666, 0755);
  EXPECT_EQ(errorAsNobody(temp / "state/store"), static_cast<int>(StoreError::Permission));
}

TEST(SqliteFaults, SaysThatThisUserMayNotMakeIt) {
  const TempFolder temp;
  std::filesystem::create_directory(temp / "state");
  ::chmod(temp.path().c_str(), 0755);
  EXPECT_EQ(errorAsNobody(temp / "state/store"), static_cast<int>(StoreError::Permission));
}

TEST(SqliteFaults, SaysThatItsDiskIsFullAndKeepsWhatItHad) {
  const TempFolder temp;
  std::filesystem::create_directory(temp / "disk");
  const int result = inChild([&] {
    if (!testing_host::mountSmallDisk((temp / "disk").c_str(), "size=512k")) return kNotPermitted;
    SqliteStore store(temp / "disk/store");
    if (!add(store, "/first").ok()) return 1;
    StoreStatus status;
    std::size_t rows = 1;
    for (int i = 0; i < 200 && status.ok(); ++i) {
      status = add(store, "/" + std::to_string(i), 10'000);
      if (status.ok()) ++rows;
    }
    if (status.error != StoreError::Full) return 2;
    if (status.text.find("make room") == std::string::npos) return 3;
    if (rowCount(store) != rows) return 4;
    SqliteStore again(temp / "disk/store");
    return rowCount(again) == rows ? 0 : 5;
  });
  if (result == kNotPermitted) GTEST_SKIP() << "this system lets nobody mount a disk";
  EXPECT_EQ(result, 0);
}

// Takes what is left of the disk of \p folder, but for \p left bytes.
bool fillDisk(const std::string& folder, std::size_t left) {
  const int file = ::open((folder + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0) return false;
  const std::string page(4096, 'f');
  off_t size = 0;
  for (int i = 0; i < 10'000; ++i) {
    const ssize_t wrote = ::write(file, page.data(), page.size());
    if (wrote <= 0) break;
    size += wrote;
  }
  const bool full = errno == ENOSPC && size >= static_cast<off_t>(left);
  const bool done = full && ::ftruncate(file, size - static_cast<off_t>(left)) == 0;
  ::close(file);
  return done;
}

// What a new and an old store answer on a disk with `left` bytes; 0 when all is as it should be.
int useOfAFullDisk(const std::string& folder, std::size_t left, bool& refused) {
  if (!testing_host::mountSmallDisk(folder.c_str(), "size=512k")) return kNotPermitted;
  const std::string path = folder + "/store";
  if (SqliteStore store(path); !add(store, "/first").ok()) return 1;
  if (!fillDisk(folder, left)) return 2;
  SqliteStore store(path);
  const StoreStatus status = add(store, "/second", 100);
  refused = !status.ok();
  if (refused && status.error != StoreError::Full) return 10 + static_cast<int>(status.error);
  if (refused && status.text.find("make room") == std::string::npos) return 3;
  SqliteStore made(folder + "/new");
  const StoreStatus making = made.prepare();
  if (making.error != StoreError::Full) return 50 + static_cast<int>(making.error);
  std::filesystem::remove(folder + "/filler");
  SqliteStore again(path);
  if (rowCount(again) != (refused ? 1U : 2U)) return 4;
  return add(again, "/third").ok() ? 0 : 5;
}

TEST(SqliteFaults, SaysThatItsDiskWasFullBeforeItBegan) {
  for (std::size_t pages = 0; pages <= 12; ++pages) {
    const TempFolder temp;
    std::filesystem::create_directory(temp / "disk");
    const int result = inChild([&] {
      bool refused = false;
      const int fault = useOfAFullDisk(temp / "disk", pages * 4096, refused);
      return fault == 0 && !refused && pages == 0 ? 6 : fault;
    });
    if (result == kNotPermitted) GTEST_SKIP() << "this system lets nobody mount a disk";
    EXPECT_EQ(result, 0) << pages;
  }
}

TEST(SqliteFaults, SaysThatItsDiskIsReadOnly) {
  const TempFolder temp;
  std::filesystem::create_directory(temp / "disk");
  const int result = inChild([&] {
    if (!testing_host::mountSmallDisk((temp / "disk").c_str(), "size=8m")) return kNotPermitted;
    {
      SqliteStore store(temp / "disk/store");
      if (!add(store, "/x").ok()) return 1;
    }
    if (::mount("none", (temp / "disk").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
      return kNotPermitted;
    }
    SqliteStore store(temp / "disk/store");
    return static_cast<int>(add(store, "/y").error) + 100;
  });
  if (result == kNotPermitted) GTEST_SKIP() << "this system lets nobody mount a disk";
  EXPECT_EQ(result, static_cast<int>(StoreError::ReadOnly) + 100);
}

TEST(SqliteFaults, SaysThatItIsNoStore) {
  const TempFolder temp;
  testing_host::writeFile(temp / "store", std::string(5000, 'x'));
  SqliteStore store(temp / "store");
  const StoreStatus status = store.prepare();
  EXPECT_EQ(status.error, StoreError::Damaged);
  EXPECT_THAT(status.text, HasSubstr("restore the store from a backup"));
  EXPECT_EQ(testing_host::contentOf(temp / "store"), std::string(5000, 'x'));
}

TEST(SqliteFaults, NeverBringsAProgramDownByASpoiltPage) {
  const TempFolder temp;
  {
    SqliteStore store(temp / "good");
    for (int i = 0; i < 50; ++i) ASSERT_TRUE(add(store, "/" + std::to_string(i), 200).ok());
  }
  const std::string good = testing_host::contentOf(temp / "good");
  ASSERT_GT(good.size(), 20'000u);
  int failures = 0;
  for (std::size_t at = 0; at < good.size(); at += 997) {
    std::string bad = good;
    for (std::size_t i = at; i < std::min(at + 64, bad.size()); ++i) bad[i] = '\xA5';
    for (const char* rest : {"bad-wal", "bad-shm"}) std::filesystem::remove(temp / rest);
    testing_host::writeFile(temp / "bad", bad);
    SqliteStore store(temp / "bad");
    std::vector<IndexEntry> entries;
    if (!store.list({{}, {}, 0, 1000}, entries).ok()) ++failures;
    if (!add(store, "/new").ok()) ++failures;
  }
  EXPECT_GT(failures, 0);
}

TEST(SqliteFaults, RefusesARowThatIsNotWhatWasWritten) {
  const TempFolder temp;
  SqliteStore store(temp / "store");
  ASSERT_TRUE(add(store, "/x").ok());
  for (const char* spoil :
       {"UPDATE message_index SET recipients = x'FF'", "UPDATE message_index SET kind = 77",
        "UPDATE message_index SET kind = 1, recipients = x'', size = -1"}) {
    SqliteConnection(temp / "store", 1000).database().exec(spoil);
    IndexEntry entry;
    entry.subject = "before";
    EXPECT_EQ(store.findPath("/x", entry).error, StoreError::Damaged) << spoil;
    EXPECT_EQ(entry.subject, "before") << spoil;
  }
}

TEST(SqliteFaults, GivesUpOnAnotherWriterAfterTheBusyTimeout) {
  const TempFolder temp;
  SqliteStore store(temp / "store", SqliteOptions{50});
  ASSERT_TRUE(add(store, "/x").ok());
  {
    SqliteConnection other(temp / "store", 1000);
    Transaction transaction(other, TransactionMode::Write);
    const StoreStatus status = add(store, "/y");
    EXPECT_EQ(status.error, StoreError::Busy);
    EXPECT_THAT(status.text, HasSubstr("locked by others"));
    // No setting changes how long it waits.
    EXPECT_THAT(status.text, EndsWith("; look for a program that keeps the store locked"));
    EXPECT_EQ(rowCount(store), 1u) << "reading goes on";
  }
  EXPECT_TRUE(add(store, "/y").ok());
}

TEST(SqliteFaults, WritersInLineBehindALockGiveUpTogether) {
  constexpr int kPatienceMs = 1000;
  constexpr std::size_t kWriters = 8;
  const TempFolder temp;
  SqliteStore store(temp / "store", SqliteOptions{kPatienceMs});
  ASSERT_TRUE(add(store, "/x").ok());
  SqliteConnection other(temp / "store", 1000);
  Transaction transaction(other, TransactionMode::Write);
  const auto begin = std::chrono::steady_clock::now();
  std::vector<std::future<StoreError>> writers;
  for (std::size_t i = 0; i < kWriters; ++i) {
    writers.push_back(std::async(std::launch::async,
                                 [&, i] { return add(store, "/" + std::to_string(i)).error; }));
  }
  for (auto& writer : writers) EXPECT_EQ(writer.get(), StoreError::Busy);
  const auto took = std::chrono::steady_clock::now() - begin;
  EXPECT_LT(took, std::chrono::milliseconds(kPatienceMs * 4)) << "not one behind the other";
}

TEST(SqliteFaults, FailsWhereverItsFileCannotBeMade) {
  int failures = 0;
  for (unsigned int call = 1;; ++call) {
    const TempFolder temp;
    testing_host::FailingOps ops;
    ops.failCall(call, EIO);
    SqliteStore store(temp / "a/store", SqliteOptions{}, ops);
    const StoreStatus status = add(store, "/x");
    const bool fired = ops.fired();
    // One that may be gone without is the look at the folder above a new one.
    if (!status.ok()) {
      ++failures;
      EXPECT_EQ(status.error, StoreError::InputOutput) << call << ": " << status.text;
    }
    ops.failCall(0, 0);
    EXPECT_TRUE(add(store, "/x").ok()) << "the next call has better luck, " << call;
    EXPECT_EQ(rowCount(store), 1u);
    if (!fired) break;
  }
  EXPECT_GT(failures, 4);
}

}  // namespace
