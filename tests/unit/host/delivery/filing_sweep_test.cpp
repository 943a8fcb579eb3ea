#include "host/delivery/filing_sweep.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>

#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::FilingSweep;
using host::delivery::LocalAdapter;
using host::delivery::SweepReport;
using host::store::IndexEntry;
using host::store::MessageKind;
using testing_host::archive;
using testing_host::contentOf;
using testing_host::filesBelow;
using testing_host::FilingBench;
using testing_host::quarantine;
using Files = std::vector<std::string>;

// As old as what nobody comes back for.
constexpr std::time_t kOld = FilingSweep::kMinimumAgeSeconds + 60;

void makeOlder(const std::string& path, std::time_t seconds) {
  const timespec time{std::time(nullptr) - seconds, 0};
  const timespec times[] = {time, time};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

class Sweep : public ::testing::Test {
 protected:
  AdapterError sweep(MessageKind kind = MessageKind::Quarantined) {
    fault_.clear();
    return bench_.state.prepareFiling(kind, bench_.folder, report_, fault_);
  }

  std::string place(const std::string& name, std::time_t age) {
    const std::string path = bench_.folder + "/" + name;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    testing_host::writeFile(path, "Subject: " + name + "\r\n\r\n");
    makeOlder(path, age);
    return path;
  }

  FilingBench bench_;
  LocalAdapter adapter_{bench_.state};
  SweepReport report_;
  std::string fault_;
};

TEST_F(Sweep, MakesTheFolderAndMarksIt) {
  std::filesystem::remove(bench_.folder);
  EXPECT_EQ(sweep(), AdapterError::None);
  struct stat status {};
  ASSERT_EQ(::stat(bench_.folder.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0700u);
  EXPECT_EQ(filesBelow(bench_.folder), Files{".kavi-folder"});
  EXPECT_EQ(sweep(), AdapterError::None);
}

TEST_F(Sweep, LeavesWhatIsInLineAlone) {
  ASSERT_EQ(sweep(), AdapterError::None);
  ASSERT_TRUE(quarantine(adapter_, bench_.message, bench_.folder).ok());
  makeOlder(bench_.folder + "/a/b/abc123.DF", kOld);
  const auto before = bench_.rows();
  EXPECT_EQ(sweep(), AdapterError::None);
  EXPECT_EQ(report_.rowsRemoved + report_.filesAdopted + report_.temporaries, 0u);
  EXPECT_EQ(bench_.rows(), before);
  EXPECT_EQ(filesBelow(bench_.folder), (Files{".kavi-folder", "a/b/abc123.DF"}));
}

TEST_F(Sweep, RemovesWhatCrashedWritersLeft) {
  ASSERT_EQ(sweep(), AdapterError::None);
  place("a/b/.tmp-old", 100);
  place(".tmp-old", 100);
  place("a/b/.tmp-young", 0);
  EXPECT_EQ(sweep(), AdapterError::None);
  EXPECT_EQ(report_.temporaries, 2u);
  EXPECT_EQ(filesBelow(bench_.folder), (Files{"!a/b/.tmp-young", ".kavi-folder"}));
  EXPECT_TRUE(bench_.rows().empty()) << "an unfinished file is no message";
}

TEST_F(Sweep, RemovesRowsWithoutAFile) {
  ASSERT_EQ(sweep(), AdapterError::None);
  ASSERT_TRUE(quarantine(adapter_, bench_.message, bench_.folder).ok());
  ASSERT_TRUE(quarantine(adapter_, bench_.message, bench_.folder).ok());
  ASSERT_TRUE(archive(adapter_, bench_.message, bench_.folder, "Sales").ok());
  std::filesystem::remove(bench_.folder + "/a/b/abc123.DF");
  std::filesystem::remove_all(bench_.folder + "/Sales");
  EXPECT_EQ(sweep(), AdapterError::None);
  EXPECT_EQ(report_.rowsRemoved, 2u);
  ASSERT_EQ(bench_.rows().size(), 1u);
  EXPECT_EQ(bench_.rows()[0].path, bench_.folder + "/a/b/abc123~2.DF");
}

TEST_F(Sweep, LeavesTheRowsOfOtherFoldersAlone) {
  ASSERT_EQ(sweep(), AdapterError::None);
  for (const std::string& path :
       {bench_.folder + "2/a/b/abc.DF", bench_.folder, std::string("/")}) {
    IndexEntry entry;
    entry.path = path;
    bool added = false;
    ASSERT_TRUE(bench_.store->addMissing(entry, added).ok());
  }
  EXPECT_EQ(sweep(), AdapterError::None);
  EXPECT_EQ(bench_.rows().size(), 3u);
}

TEST_F(Sweep, GivesAFileWithoutARowOne) {
  ASSERT_EQ(sweep(), AdapterError::None);
  const std::string path = place("a/b/abc~2.DF", kOld);
  EXPECT_EQ(sweep(), AdapterError::None);
  EXPECT_EQ(report_.filesAdopted, 1u);
  const auto rows = bench_.rows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].kind, MessageKind::Quarantined);
  EXPECT_EQ(rows[0].messageId, "abc");
  EXPECT_EQ(rows[0].path, path);
  EXPECT_EQ(rows[0].size, contentOf(path).size());
  EXPECT_NEAR(static_cast<double>(rows[0].storedAt), static_cast<double>(std::time(nullptr) - kOld),
              60);
  EXPECT_EQ(rows[0].sender, std::nullopt);
  EXPECT_EQ(rows[0].agingDays, std::nullopt);
  EXPECT_EQ(sweep(), AdapterError::None);
  EXPECT_EQ(report_.filesAdopted, 0u);
}

TEST_F(Sweep, LeavesAYoungFileToWhoeverIsFilingIt) {
  ASSERT_EQ(sweep(), AdapterError::None);
  place("a/b/abc.DF", FilingSweep::kMinimumAgeSeconds - 60);
  EXPECT_EQ(sweep(), AdapterError::None);
  EXPECT_EQ(report_.filesTooYoung, 1u);
  EXPECT_TRUE(bench_.rows().empty());
}

TEST_F(Sweep, KnowsTheAreaOfAnArchivedFile) {
  ASSERT_EQ(sweep(MessageKind::Archived), AdapterError::None);
  const std::string areas[] = {"Sales", "../x", "", std::string(500, '/'), "Verträge"};
  for (const std::string& area : areas) {
    ASSERT_TRUE(archive(adapter_, bench_.message, bench_.folder, area).ok());
  }
  const auto before = bench_.rows();
  for (const IndexEntry& entry : before) {
    makeOlder(entry.path, kOld);
    ASSERT_TRUE(bench_.store->removeEntry(entry.row).ok());
  }
  EXPECT_EQ(sweep(MessageKind::Archived), AdapterError::None);
  EXPECT_EQ(report_.filesAdopted, std::size(areas));
  for (const IndexEntry& entry : before) {
    IndexEntry found;
    ASSERT_TRUE(bench_.store->findPath(entry.path, found).ok()) << entry.path;
    EXPECT_EQ(found.kind, MessageKind::Archived);
    EXPECT_EQ(found.area, entry.area);
    EXPECT_EQ(found.messageId, "abc123");
  }
}

TEST_F(Sweep, LeavesStrangersAlone) {
  ASSERT_EQ(sweep(), AdapterError::None);
  for (const char* name : {"README", "abc.DF", "x/y/abc.DF", "a/abc.DF", "a/b/c/abc.DF",
                           "a/b/abc.eml", "lost+found/ab.DF", "a/b/.hidden.DF"}) {
    place(name, kOld);
  }
  const Files before = filesBelow(bench_.folder);
  EXPECT_EQ(sweep(), AdapterError::None);
  EXPECT_EQ(report_.filesAdopted, 0u);
  EXPECT_EQ(filesBelow(bench_.folder), before);
  EXPECT_TRUE(bench_.rows().empty());
}

TEST_F(Sweep, FollowsNoLink) {
  ASSERT_EQ(sweep(), AdapterError::None);
  const std::string outside = bench_.temp / "outside";
  std::filesystem::create_directories(outside + "/b");
  testing_host::writeFile(outside + "/b/abc.DF", "x");
  testing_host::writeFile(outside + "/b/.tmp-x", "x");
  makeOlder(outside + "/b/abc.DF", kOld);
  makeOlder(outside + "/b/.tmp-x", kOld);
  std::filesystem::create_symlink(outside, bench_.folder + "/a");
  EXPECT_EQ(sweep(), AdapterError::None);
  EXPECT_EQ(report_.filesAdopted + report_.temporaries, 0u);
  EXPECT_EQ(filesBelow(outside).size(), 2u);
}

TEST_F(Sweep, TouchesNothingWhereADiskMayNotBeMounted) {
  ASSERT_EQ(sweep(), AdapterError::None);
  ASSERT_TRUE(quarantine(adapter_, bench_.message, bench_.folder).ok());
  std::filesystem::rename(bench_.folder, bench_.temp / "elsewhere");
  std::filesystem::create_directory(bench_.folder);
  EXPECT_EQ(sweep(), AdapterError::NotOurFolder);
  EXPECT_THAT(fault_,
              ::testing::AllOf(::testing::HasSubstr(bench_.folder), ::testing::HasSubstr("mount"),
                               ::testing::HasSubstr(".kavi-folder")));
  EXPECT_EQ(bench_.rows().size(), 1u);
  EXPECT_TRUE(std::filesystem::is_empty(bench_.folder));
  testing_host::writeFile(bench_.folder + "/.kavi-folder", "");
  EXPECT_EQ(sweep(), AdapterError::None) << "the remedy helps";
}

TEST_F(Sweep, PagesThroughManyRowsAndFiles) {
  ASSERT_EQ(sweep(), AdapterError::None);
  constexpr int kFiles = 1300;
  for (int i = 0; i < kFiles; ++i) {
    const std::string path = place("a/b/ab" + std::to_string(i) + ".DF", kOld);
    if (i % 3 == 0) continue;  // without a row
    IndexEntry entry;
    entry.path = path;
    bool added = false;
    ASSERT_TRUE(bench_.store->addMissing(entry, added).ok());
    if (i % 3 == 1) {
      std::filesystem::remove(path);
    }
  }
  EXPECT_EQ(sweep(), AdapterError::None);
  EXPECT_EQ(report_.rowsRemoved, 433u);
  EXPECT_EQ(report_.filesAdopted, 434u);
  std::vector<IndexEntry> rows;
  ASSERT_TRUE(bench_.store->list({{}, {}, 0, 10'000}, rows).ok());
  EXPECT_EQ(rows.size(), filesBelow(bench_.folder).size() - 1);
}

TEST_F(Sweep, RemovesNoRowWhenItCannotLook) {
  ASSERT_EQ(sweep(), AdapterError::None);
  ASSERT_TRUE(quarantine(adapter_, bench_.message, bench_.folder).ok());
  place("x/y/xyz.DF", kOld);
  int failures = 0;
  for (unsigned int call = 1;; ++call) {
    bench_.ops.failCall(call, EACCES);
    const AdapterError error = sweep();
    const bool fired = bench_.ops.fired();
    bench_.ops.failCall(0, 0);
    IndexEntry entry;
    EXPECT_TRUE(bench_.store->findPath(bench_.folder + "/a/b/abc123.DF", entry).ok()) << call;
    EXPECT_TRUE(std::filesystem::exists(bench_.folder + "/a/b/abc123.DF")) << call;
    if (error != AdapterError::None) ++failures;
    if (!fired) break;
  }
  EXPECT_GT(failures, 3);
}

TEST_F(Sweep, SaysWhenTheIndexFails) {
  ASSERT_EQ(sweep(), AdapterError::None);
  const std::string unknown = place("x/y/xyz.DF", kOld);
  int failures = 0;
  for (unsigned int call = 1;; ++call) {
    // A row without a file, and a file without a row.
    IndexEntry entry;
    entry.path = bench_.folder + "/a/b/abc123.DF";
    bool added = false;
    ASSERT_TRUE(bench_.store->memory().addMissing(entry, added).ok());
    static_cast<void>(bench_.store->memory().removePath(unknown));
    bench_.store->failCall(call);
    const AdapterError error = sweep();
    if (!bench_.store->fired()) {
      EXPECT_EQ(error, AdapterError::None);
      break;
    }
    ++failures;
    EXPECT_EQ(error, AdapterError::IndexUnavailable) << call;
    EXPECT_EQ(fault_, "the index is told to fail");
  }
  EXPECT_EQ(failures, 4);
  EXPECT_EQ(bench_.rows().size(), 1u);
}

TEST_F(Sweep, RefusesWhatNobodyFilesUnder) {
  EXPECT_EQ(sweep(MessageKind::Postponed), AdapterError::InvalidArgument);
  EXPECT_EQ(bench_.state.prepareFiling(MessageKind::Archived, "", report_, fault_),
            AdapterError::InvalidArgument);
  host::delivery::DeliveryState closed;
  EXPECT_EQ(closed.prepareFiling(MessageKind::Archived, bench_.folder, report_, fault_),
            AdapterError::MissingFolder);
}

}  // namespace
