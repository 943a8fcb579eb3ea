#include "host/delivery/spool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <algorithm>
#include <ctime>
#include <thread>

#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/failing_ops.h"
#include "tests/unit/host/core/temp_folder.h"
#include "tests/unit/host/delivery/plain_message.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::Spool;
using host::delivery::SpoolEntry;
using testing_host::entryCount;
using testing_host::PlainMessage;
using testing_host::TempFolder;
using testing_host::writeFile;

SpoolEntry window(unsigned char hour, unsigned char minute) {
  SpoolEntry entry;
  entry.kind = "postpone";
  entry.queuedAt = 1'700'000'000;
  entry.window = {hour, minute, 23, 59};
  return entry;
}

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

TEST(Spool, KeepsAMessageWithItsEnvelopeAndWindow) {
  const TempFolder temp;
  PlainMessage message(std::string("Subject: x\r\n\r\n\0\xFF body", 21));
  message.setEnvelope("a@example.org", {"b@example.org", "c@example.org"});
  std::string id;
  {
    Spool spool;
    ASSERT_EQ(spool.open(temp / "spool"), AdapterError::None);
    ASSERT_EQ(spool.put(window(8, 30), message, id), AdapterError::None);
  }
  EXPECT_EQ(modeOf(temp / "spool"), 0700u);
  EXPECT_EQ(modeOf(temp / "spool/" + id + ".msg"), 0600u);

  Spool spool;
  ASSERT_EQ(spool.open(temp / "spool"), AdapterError::None);
  std::vector<std::string> ids;
  ASSERT_EQ(spool.list(ids), AdapterError::None);
  EXPECT_THAT(ids, ::testing::ElementsAre(id));
  SpoolEntry entry;
  std::string bytes;
  ASSERT_EQ(spool.read(id, entry, bytes), AdapterError::None);
  EXPECT_EQ(bytes, message.bytes());
  EXPECT_EQ(entry.kind, "postpone");
  EXPECT_EQ(entry.messageId, message.id());
  EXPECT_EQ(entry.queuedAt, 1'700'000'000);
  EXPECT_EQ(entry.window, (host::delivery::TimeWindow{8, 30, 23, 59}));
  EXPECT_EQ(entry.envelope.sender, "a@example.org");
  EXPECT_THAT(entry.envelope.recipients, ::testing::ElementsAre("b@example.org", "c@example.org"));
  ASSERT_EQ(spool.remove(id), AdapterError::None);
  EXPECT_EQ(spool.remove(id), AdapterError::NotFound);
  EXPECT_EQ(spool.read(id, entry, bytes), AdapterError::NotFound);
  EXPECT_EQ(entryCount(temp / "spool"), 0u);
}

TEST(Spool, KeepsMessagesOfAnySizeAndWithoutEnvelope) {
  const TempFolder temp;
  Spool spool;
  ASSERT_EQ(spool.open(temp.path()), AdapterError::None);
  for (const std::size_t size : {0u, 1u, 70'000u, 3'000'000u}) {
    const PlainMessage message(std::string(size, 'x'));
    std::string id;
    ASSERT_EQ(spool.put(window(0, 0), message, id), AdapterError::None);
    SpoolEntry entry;
    std::string bytes;
    ASSERT_EQ(spool.read(id, entry, bytes), AdapterError::None);
    EXPECT_EQ(bytes, message.bytes());
    EXPECT_FALSE(entry.envelope.sender.has_value());
  }
}

TEST(Spool, ListsTheOldestFirstAndOnlyWhatIsAnEntry) {
  const TempFolder temp;
  Spool spool;
  ASSERT_EQ(spool.open(temp.path()), AdapterError::None);
  const PlainMessage message;
  std::vector<std::string> put(5);
  for (std::string& id : put) ASSERT_EQ(spool.put(window(1, 2), message, id), AdapterError::None);
  for (const char* name : {".tmp-abc", ".msg", "README", "UPPER.msg", "a.b.msg", "x.msg~", "abc"}) {
    writeFile(temp / name, "x");
  }
  std::vector<std::string> ids;
  ASSERT_EQ(spool.list(ids), AdapterError::None);
  EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
  EXPECT_THAT(ids, ::testing::UnorderedElementsAreArray(put));
}

TEST(Spool, SaysThatAnEntryIsDamaged) {
  const TempFolder temp;
  Spool spool;
  ASSERT_EQ(spool.open(temp.path()), AdapterError::None);
  std::string id;
  ASSERT_EQ(spool.put(window(1, 2), PlainMessage(), id), AdapterError::None);
  const std::string path = temp / (id + ".msg");
  ASSERT_EQ(::truncate(path.c_str(), 20), 0);
  SpoolEntry entry;
  entry.kind = "before";
  std::string bytes = "before";
  EXPECT_EQ(spool.read(id, entry, bytes), AdapterError::Damaged);
  EXPECT_EQ(entry.kind, "before");
  EXPECT_EQ(bytes, "before");
}

TEST(Spool, TakesNoPathForAnId) {
  const TempFolder temp;
  Spool spool;
  ASSERT_EQ(spool.open(temp / "spool"), AdapterError::None);
  writeFile(temp / "outside.msg", "x");
  SpoolEntry entry;
  std::string bytes;
  for (const char* id : {"../outside", "", ".", "/etc/passwd", "OUTSIDE"}) {
    EXPECT_EQ(spool.read(id, entry, bytes), AdapterError::NotFound) << id;
    EXPECT_EQ(spool.remove(id), AdapterError::NotFound) << id;
  }
  EXPECT_EQ(entryCount(temp.path()), 2u);
}

TEST(Spool, RefusesATimeThatIsNone) {
  const TempFolder temp;
  Spool spool;
  ASSERT_EQ(spool.open(temp.path()), AdapterError::None);
  std::string id = "before";
  EXPECT_EQ(spool.put(window(24, 0), PlainMessage(), id), AdapterError::InvalidArgument);
  EXPECT_EQ(spool.put(window(0, 60), PlainMessage(), id), AdapterError::InvalidArgument);
  EXPECT_EQ(id, "before");
  EXPECT_EQ(entryCount(temp.path()), 0u);
}

TEST(Spool, StoresNothingOfAMessageThatCannotBeWrittenOut) {
  const TempFolder temp;
  Spool spool;
  ASSERT_EQ(spool.open(temp.path()), AdapterError::None);
  PlainMessage broken(std::string(1000, 'x'));
  broken.failRenderingAt(500);
  PlainMessage shorter;
  shorter.claimSize(1000);
  std::string id = "before";
  EXPECT_EQ(spool.put(window(1, 2), broken, id), AdapterError::MessageUnreadable);
  EXPECT_EQ(spool.put(window(1, 2), shorter, id), AdapterError::MessageUnreadable);
  EXPECT_EQ(id, "before");
  EXPECT_EQ(entryCount(temp.path()), 0u);
}

TEST(Spool, FailsBeforeItIsOpen) {
  Spool spool;
  std::string id;
  SpoolEntry entry;
  std::vector<std::string> ids;
  EXPECT_EQ(spool.put(window(1, 2), PlainMessage(), id), AdapterError::MissingFolder);
  EXPECT_EQ(spool.list(ids), AdapterError::MissingFolder);
  EXPECT_EQ(spool.read("a", entry, id), AdapterError::MissingFolder);
  EXPECT_EQ(spool.remove("a"), AdapterError::MissingFolder);
  EXPECT_EQ(spool.open(""), AdapterError::MissingFolder);
}

TEST(Spool, SweepsWhatACrashedWriterLeft) {
  const TempFolder temp;
  writeFile(temp / ".tmp-old", "x");
  writeFile(temp / ".tmp-young", "x");
  const utimbuf old{std::time(nullptr) - 3600, std::time(nullptr) - 3600};
  ASSERT_EQ(::utime((temp / ".tmp-old").c_str(), &old), 0);
  Spool spool;
  ASSERT_EQ(spool.open(temp.path()), AdapterError::None);
  EXPECT_EQ(entryCount(temp.path()), 1u);
}

TEST(Spool, LeavesNothingWhereverAFileOperationFails) {
  const TempFolder temp;
  testing_host::FailingOps ops;
  Spool spool(ops);
  ASSERT_EQ(spool.open(temp.path()), AdapterError::None);
  const PlainMessage message(std::string(100'000, 'x'));
  std::string id;
  for (unsigned int call = 1;; ++call) {
    ops.failCall(call, ENOSPC);
    const AdapterError error = spool.put(window(1, 2), message, id);
    if (!ops.fired()) {
      EXPECT_EQ(error, AdapterError::None);
      EXPECT_EQ(ops.calls(), (std::vector<std::string>{"openFile", "lock", "write", "write", "sync",
                                                       "rename", "sync"}));
      break;
    }
    EXPECT_EQ(error, AdapterError::DiskFull) << call;
    EXPECT_EQ(id, "") << call;
    EXPECT_EQ(entryCount(temp.path()), 0u) << call;
  }
}

/// Nothing can be flushed behind a rename, and no name taken back.
class StuckName final : public host::core::FileOps {
 public:
  int rename(int folder, const std::string& from, const std::string& to) override {
    renamed_ = true;
    return FileOps::rename(folder, from, to);
  }
  int sync(int descriptor) override { return renamed_ ? -EIO : FileOps::sync(descriptor); }
  int unlink(int folder, const std::string& name) override {
    return renamed_ ? -EIO : FileOps::unlink(folder, name);
  }

 private:
  bool renamed_ = false;
};

TEST(Spool, SaysThatAnEntryMayBeThere) {
  const TempFolder temp;
  StuckName ops;
  Spool spool(ops);
  ASSERT_EQ(spool.open(temp.path()), AdapterError::None);
  std::string id;
  EXPECT_EQ(spool.put(window(1, 2), PlainMessage("Subject: x\n\n"), id), AdapterError::Uncertain);
  EXPECT_EQ(id, "");
  EXPECT_EQ(entryCount(temp.path()), 1u);
}

TEST(Spool, FailsOnAFullDiskAndStoresNothing) {
  const TempFolder temp;
  const int result = testing_host::inChild([&] {
    if (!testing_host::mountSmallDisk(temp.path().c_str(), "size=64k")) {
      return testing_host::kNotPermitted;
    }
    Spool spool;
    if (spool.open(temp.path()) != AdapterError::None) return 1;
    std::string id;
    const PlainMessage big(std::string(1'000'000, 'x'));
    if (spool.put(window(1, 2), big, id) != AdapterError::DiskFull) return 2;
    if (entryCount(temp.path()) != 0) return 3;
    return spool.put(window(1, 2), PlainMessage(), id) == AdapterError::None ? 0 : 4;
  });
  if (result == testing_host::kNotPermitted) GTEST_SKIP() << "mounting is not permitted here";
  EXPECT_EQ(result, 0);
}

TEST(Spool, TellsAForeignFolderApart) {
  const TempFolder temp;
  ASSERT_EQ(::chmod(temp.path().c_str(), 0555), 0);
  EXPECT_EQ(testing_host::inChild([&] {
              if (!testing_host::becomeUnprivileged()) return 1;
              Spool spool;
              if (spool.open(temp / "new") != AdapterError::Permission) return 2;
              if (spool.open(temp.path()) != AdapterError::None) return 3;
              std::string id;
              return spool.put(window(1, 2), PlainMessage(), id) == AdapterError::Permission ? 0
                                                                                             : 4;
            }),
            0);
}

TEST(Spool, ServesManyThreads) {
  const TempFolder temp;
  Spool spool;
  ASSERT_EQ(spool.open(temp.path()), AdapterError::None);
  constexpr int kEach = 50;
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&spool, number] {
      for (int each = 0; each < kEach; ++each) {
        const PlainMessage message(std::string(1000, static_cast<char>('a' + number)));
        std::string id;
        EXPECT_EQ(spool.put(window(1, 2), message, id), AdapterError::None);
        SpoolEntry entry;
        std::string bytes;
        EXPECT_EQ(spool.read(id, entry, bytes), AdapterError::None);
        EXPECT_EQ(bytes, message.bytes());
        if (each % 2 == 0) {
          EXPECT_EQ(spool.remove(id), AdapterError::None);
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::vector<std::string> ids;
  ASSERT_EQ(spool.list(ids), AdapterError::None);
  EXPECT_EQ(ids.size(), 4u * kEach / 2);
}

}  // namespace
