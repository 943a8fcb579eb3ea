// Quarantine and archive on real folders, with an index in memory.
#include "host/delivery/filing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>

#include "tests/unit/host/core/child.h"
#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::LocalAdapter;
using host::message::Buffer;
using host::message::Message;
using host::store::IndexEntry;
using host::store::MessageKind;
using Kavi::ScanToken;
using testing_host::Answer;
using testing_host::archive;
using testing_host::contentOf;
using testing_host::filesBelow;
using testing_host::FilingBench;
using testing_host::inChild;
using testing_host::kNotPermitted;
using testing_host::quarantine;
using testing_host::TempFolder;
using testing_host::Tokens;
using Files = std::vector<std::string>;

class Filing : public ::testing::Test {
 protected:
  Answer quarantineIt() { return quarantine(adapter_, bench_.message, bench_.folder); }
  Answer archiveIt(const std::string& area = "Sales") {
    return archive(adapter_, bench_.message, bench_.folder, area);
  }

  FilingBench bench_;
  LocalAdapter adapter_{bench_.state};
};

unsigned int modeOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : 0;
}

TEST_F(Filing, PutsAQuarantinedMessageWhereItsIdSays) {
  const Answer answer = quarantineIt();
  EXPECT_TRUE(answer.ok());
  EXPECT_EQ(answer.path, bench_.folder + "/a/b/abc123.DF");
  EXPECT_EQ(contentOf(answer.path), bench_.message.bytes());
  EXPECT_EQ(filesBelow(bench_.folder), Files{"a/b/abc123.DF"});
}

TEST_F(Filing, PutsAnArchivedMessageIntoTheFolderOfItsArea) {
  EXPECT_TRUE(archiveIt("Sales / 2024").ok());
  EXPECT_EQ(filesBelow(bench_.folder), Files{"Sales %2F 2024/abc123.eml"});
  EXPECT_EQ(contentOf(bench_.folder + "/Sales %2F 2024/abc123.eml"), bench_.message.bytes());
}

TEST_F(Filing, LetsOnlyItsUserIn) {
  const mode_t before = ::umask(0);
  EXPECT_TRUE(quarantineIt().ok());
  EXPECT_TRUE(archiveIt().ok());
  ::umask(before);
  for (const char* folder : {"a", "a/b", "Sales"}) {
    EXPECT_EQ(modeOf(bench_.folder + "/" + folder), 0700u) << folder;
  }
  for (const char* file : {"a/b/abc123.DF", "Sales/abc123.eml"}) {
    EXPECT_EQ(modeOf(bench_.folder + "/" + file), 0600u) << file;
  }
}

TEST_F(Filing, WritesARowForAQuarantinedMessage) {
  Tokens tokens;
  tokens.set(ScanToken::RuleId, "15");
  tokens.set(ScanToken::QuarantineAgingDays, "30");
  tokens.set(ScanToken::QuarantineArea, "Viruses");
  const std::string bytes = "Subject: =?utf-8?q?gr=C3=BC=C3=9Fe?=\r\n\r\nbody\r\n";
  const auto message = Message::parse(Buffer::copyOf(bytes));
  message->setEnvelope({"a@example.org", {"b@example.org", "c@example.org"}, {}});
  ASSERT_EQ(adapter_.beginMessage(*message, bytes, tokens), AdapterError::None);
  const std::time_t before = std::time(nullptr);
  const Answer answer = quarantine(adapter_, *message, bench_.folder);
  ASSERT_TRUE(answer.ok());
  const auto rows = bench_.rows();
  ASSERT_EQ(rows.size(), 1u);
  IndexEntry expected;
  expected.row = rows[0].row;
  expected.kind = MessageKind::Quarantined;
  expected.area = "Viruses";
  expected.messageId = message->id();
  expected.rule = "15";
  expected.agingDays = 30;
  expected.sender = "a@example.org";
  expected.recipients = {"b@example.org", "c@example.org"};
  expected.subject = "grüße";
  expected.size = bytes.size();
  expected.storedAt = rows[0].storedAt;
  expected.path = answer.path;
  EXPECT_EQ(rows[0], expected);
  EXPECT_GE(rows[0].storedAt, before);
  EXPECT_LE(rows[0].storedAt, std::time(nullptr));
}

TEST_F(Filing, WritesARowForAnArchivedMessage) {
  Tokens tokens;
  tokens.set(ScanToken::RuleId, "7");
  tokens.set(ScanToken::QuarantineAgingDays, "30");
  tokens.set(ScanToken::ArchiveAgingDays, "");
  tokens.set(ScanToken::ArchiveAreaName, "Sales");
  ASSERT_EQ(adapter_.beginMessage(bench_.message, bench_.message.bytes(), tokens),
            AdapterError::None);
  bench_.message.setEnvelope("", {});
  ASSERT_TRUE(archiveIt().ok());
  const auto rows = bench_.rows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].kind, MessageKind::Archived);
  EXPECT_EQ(rows[0].area, "Sales");
  EXPECT_EQ(rows[0].rule, "7");
  EXPECT_EQ(rows[0].agingDays, std::nullopt);
  EXPECT_EQ(rows[0].sender, "");
  EXPECT_EQ(rows[0].path, bench_.folder + "/Sales/abc123.eml");
}

TEST_F(Filing, TakesAnAgingThatIsNoNumberForNone) {
  for (const char* days : {"", "x", "3x", " 3", "-1", "4294967296"}) {
    Tokens tokens;
    tokens.set(ScanToken::QuarantineAgingDays, days);
    ASSERT_EQ(adapter_.beginMessage(bench_.message, {}, tokens), AdapterError::None);
    ASSERT_TRUE(quarantineIt().ok());
    EXPECT_EQ(bench_.rows().back().agingDays, std::nullopt) << days;
  }
}

TEST_F(Filing, KeepsAreasApartThatTheActionCutsToTheSameName) {
  const std::string common(255, 'x');
  for (const std::string& area : {common + "1", common + "2", std::string("a\0b", 3)}) {
    Tokens tokens;
    tokens.set(ScanToken::ArchiveAreaName, area);
    ASSERT_EQ(adapter_.beginMessage(bench_.message, {}, tokens), AdapterError::None);
    ASSERT_TRUE(archiveIt(area.c_str()).ok());
    EXPECT_EQ(bench_.rows().back().area, area);
  }
  EXPECT_EQ(filesBelow(bench_.folder).size(), 3u);
}

TEST_F(Filing, BelievesTheActionWhenTheTokenNamesAnotherArea) {
  Tokens tokens;
  tokens.set(ScanToken::ArchiveAreaName, "Elsewhere");
  ASSERT_EQ(adapter_.beginMessage(bench_.message, {}, tokens), AdapterError::None);
  ASSERT_TRUE(archiveIt("Sales").ok());
  EXPECT_EQ(bench_.rows().back().area, "Sales");
}

TEST_F(Filing, NeverLeavesItsFolder) {
  const std::string names[] = {
      "..",   ".",   "../..",   "/etc",  "a/../../b", std::string(255, '.'),
      "\xFF", "%2F", ".hidden", "~root", "",          std::string(255, '/')};
  for (const std::string& name : names) {
    EXPECT_TRUE(archiveIt(name).ok()) << name;
    bench_.message.setId(name);
    EXPECT_TRUE(quarantineIt().ok()) << name;
  }
  std::size_t below = 0;
  for (const std::string& file : filesBelow(bench_.temp.path())) {
    if (file.starts_with("q/")) ++below;
  }
  EXPECT_EQ(below, 2 * std::size(names));
  EXPECT_EQ(testing_host::entryCount(bench_.temp.path()), 2u) << "the folder and the state";
}

TEST_F(Filing, NumbersTheCopiesOfOneMessage) {
  EXPECT_EQ(quarantineIt().path, bench_.folder + "/a/b/abc123.DF");
  EXPECT_EQ(quarantineIt().path, bench_.folder + "/a/b/abc123~2.DF");
  EXPECT_EQ(quarantineIt().path, bench_.folder + "/a/b/abc123~3.DF");
  EXPECT_EQ(bench_.rows().size(), 3u);
}

TEST_F(Filing, NeverReplacesAFile) {
  std::filesystem::create_directories(bench_.folder + "/a/b");
  testing_host::writeFile(bench_.folder + "/a/b/abc123.DF", "somebody's");
  EXPECT_EQ(quarantineIt().path, bench_.folder + "/a/b/abc123~2.DF");
  EXPECT_EQ(contentOf(bench_.folder + "/a/b/abc123.DF"), "somebody's");
}

TEST_F(Filing, TakesAPathOf519BytesAndNoLongerOne) {
  const std::string rest = "/a/b/abc123.DF";
  for (const std::size_t length : {519u, 520u, 600u}) {
    std::string folder = bench_.folder;
    while (folder.size() + 201 < length - rest.size()) folder += "/" + std::string(200, 'd');
    if (folder.size() + rest.size() < length) {
      folder += "/" + std::string(length - rest.size() - folder.size() - 1, 'e');
    }
    ASSERT_EQ(folder.size() + rest.size(), length);
    std::filesystem::create_directories(folder);
    const Answer answer = quarantine(adapter_, bench_.message, folder);
    if (length == 519) {
      EXPECT_TRUE(answer.ok());
      EXPECT_EQ(answer.path, folder + rest);
    } else {
      EXPECT_NE(answer.result, 0);
      EXPECT_EQ(answer.error, AdapterError::PathTooLong);
      EXPECT_EQ(answer.path, "");
      EXPECT_TRUE(std::filesystem::is_empty(folder));
    }
  }
  EXPECT_EQ(bench_.rows().size(), 1u);
}

TEST_F(Filing, RefusesAnArchivePathThatNoIndexCanHold) {
  for (const std::size_t length : {1500u, 2000u}) {
    Tokens tokens;
    tokens.set(ScanToken::ArchiveAreaName, std::string(length, 'x'));
    ASSERT_EQ(adapter_.beginMessage(bench_.message, {}, tokens), AdapterError::None);
    const Answer answer = archiveIt(std::string(255, 'x'));
    EXPECT_EQ(answer.error, length == 1500 ? AdapterError::None : AdapterError::PathTooLong);
  }
  EXPECT_EQ(bench_.rows().size(), 1u);
}

TEST_F(Filing, TakesRelativeFoldersAndSlashesAtTheEnd) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(bench_.temp.path());
  const Answer answer = quarantine(adapter_, bench_.message, "q//");
  std::filesystem::current_path(before);
  ASSERT_TRUE(answer.ok());
  EXPECT_TRUE(std::filesystem::path(answer.path).is_absolute());
  EXPECT_TRUE(answer.path.ends_with("/q/a/b/abc123.DF")) << answer.path;
  EXPECT_EQ(bench_.rows()[0].path, answer.path);
  EXPECT_TRUE(std::filesystem::exists(answer.path));
}

TEST_F(Filing, RefusesNothingToFileOrNowhereToFileIt) {
  unsigned int error = 0;
  char path[kQuarantinePathSize] = "before";
  EXPECT_NE(adapter_.quarantineMessage(error, nullptr, "", bench_.folder.c_str(), path), 0);
  EXPECT_EQ(error, 1u);
  EXPECT_STREQ(path, "");
  EXPECT_NE(adapter_.quarantineMessage(error, &bench_.message, "", nullptr, path), 0);
  EXPECT_EQ(error, 1u);
  EXPECT_EQ(quarantine(adapter_, bench_.message, "").error, AdapterError::InvalidArgument);
  char area[kArchiveAreaNameSize];
  std::fill(std::begin(area), std::end(area), 'x');
  EXPECT_NE(adapter_.archiveMessage(error, &bench_.message, "", bench_.folder.c_str(), area), 0);
  EXPECT_EQ(error, 1u) << "a name without an end";
  EXPECT_NE(adapter_.archiveMessage(error, nullptr, "", bench_.folder.c_str(), area), 0);
  EXPECT_TRUE(filesBelow(bench_.folder).empty());
}

TEST_F(Filing, SaysThatTheFolderIsMissing) {
  EXPECT_EQ(quarantine(adapter_, bench_.message, bench_.temp / "nowhere").error,
            AdapterError::MissingFolder);
  EXPECT_EQ(archive(adapter_, bench_.message, bench_.temp / "nowhere", "x").error,
            AdapterError::MissingFolder);
  EXPECT_FALSE(std::filesystem::exists(bench_.temp / "nowhere"));
  EXPECT_TRUE(bench_.rows().empty());
}

TEST_F(Filing, RefusesALinkInTheWayOfAFolder) {
  std::filesystem::create_directory(bench_.temp / "outside");
  std::filesystem::create_symlink(bench_.temp / "outside", bench_.folder + "/a");
  const Answer answer = quarantineIt();
  EXPECT_NE(answer.result, 0);
  EXPECT_EQ(answer.error, AdapterError::MissingFolder);
  EXPECT_TRUE(std::filesystem::is_empty(bench_.temp / "outside"));
}

TEST_F(Filing, FilesNothingOfAMessageThatCannotBeWritten) {
  bench_.message.failRenderingAt(10);
  EXPECT_EQ(quarantineIt().error, AdapterError::MessageUnreadable);
  bench_.message = testing_host::PlainMessage();
  bench_.message.claimSize(5);
  EXPECT_EQ(archiveIt().error, AdapterError::MessageUnreadable);
  EXPECT_TRUE(filesBelow(bench_.folder).empty());
  EXPECT_TRUE(bench_.rows().empty());
}

TEST_F(Filing, CutsALongSubjectBetweenCharacters) {
  std::string subject = "x";
  while (subject.size() < 20'000) subject += "字";
  const auto message = Message::parse(Buffer::copyOf("Subject: " + subject + "\r\n\r\n"));
  ASSERT_TRUE(quarantine(adapter_, *message, bench_.folder).ok());
  const std::string kept = bench_.rows()[0].subject;
  EXPECT_LE(kept.size(), 8192u);
  EXPECT_GT(kept.size(), 8192u - 4);
  EXPECT_TRUE(subject.starts_with(kept));
  EXPECT_EQ(kept.size() % 3, 1u);
}

TEST_F(Filing, FlushesFileFolderAndEveryFolderAboveANewOne) {
  bench_.ops.failCall(0, 0);
  ASSERT_TRUE(quarantineIt().ok());
  EXPECT_EQ(bench_.ops.calls(),
            (std::vector<std::string>{
                "openFolder",                                              // the folder itself
                "openFolder", "makeFolder", "openFolder", "sync",          // "a" in it
                "openFolder", "makeFolder", "openFolder", "sync",          // "a/b"
                "openFile",                                                // is the name free?
                "openFile", "lock", "write", "sync", "rename", "sync"}));  // file and folder
  EXPECT_EQ(bench_.store->calls(), (std::vector<std::string>{"addEntry"}));
  bench_.ops.failCall(0, 0);
  bench_.message.setId("abd");
  ASSERT_TRUE(quarantineIt().ok());
  EXPECT_EQ(std::count(bench_.ops.calls().begin(), bench_.ops.calls().end(), "sync"), 2)
      << "folders that were flushed once are durable";
}

TEST_F(Filing, FlushesAFolderThatSomebodyElseMade) {
  std::filesystem::create_directories(bench_.folder + "/a/b");
  bench_.ops.failCall(0, 0);
  ASSERT_TRUE(quarantineIt().ok());
  EXPECT_EQ(std::count(bench_.ops.calls().begin(), bench_.ops.calls().end(), "sync"), 4);
}

// Whatever fails: the error says so, no file stays, no row stays, and the next attempt succeeds.
TEST_F(Filing, LeavesNothingWhereverAFileOperationFails) {
  for (const bool archives : {false, true}) {
    for (const auto& [errnoValue, error] :
         {std::pair{ENOSPC, AdapterError::DiskFull}, std::pair{EROFS, AdapterError::ReadOnly},
          std::pair{EACCES, AdapterError::Permission}, std::pair{EIO, AdapterError::InputOutput},
          std::pair{EMFILE, AdapterError::TooManyFiles}}) {
      int failures = 0;
      for (unsigned int call = 1;; ++call) {
        std::filesystem::remove_all(bench_.folder);
        std::filesystem::create_directory(bench_.folder);
        bench_.ops.failCall(call, errnoValue);
        const Answer answer = archives ? archiveIt() : quarantineIt();
        const bool fired = bench_.ops.fired();
        bench_.ops.failCall(0, 0);
        if (!fired) {
          EXPECT_TRUE(answer.ok());
          break;
        }
        if (answer.ok()) {
          // Whether a name is free may stay open: the rename finds out.
          EXPECT_EQ(errnoValue, EACCES) << call;
          ASSERT_EQ(bench_.rows().size(), 1u);
          ASSERT_EQ(bench_.store->removeEntry(bench_.rows()[0].row).error,
                    host::store::StoreError::None);
          continue;
        }
        ++failures;
        EXPECT_EQ(answer.error, error) << call;
        EXPECT_EQ(answer.path, "");
        EXPECT_EQ(filesBelow(bench_.folder), Files{}) << call;
        EXPECT_TRUE(bench_.rows().empty()) << call;
      }
      EXPECT_GT(failures, 8);
      ASSERT_EQ(bench_.rows().size(), 1u);
      ASSERT_EQ(bench_.store->removeEntry(bench_.rows()[0].row).error,
                host::store::StoreError::None);
    }
  }
}

TEST_F(Filing, TellsEveryFaultOfTheIndexApart) {
  using host::store::StoreError;
  for (const auto& [fault, error] :
       {std::pair{StoreError::Unavailable, AdapterError::IndexUnavailable},
        std::pair{StoreError::Busy, AdapterError::IndexBusy},
        std::pair{StoreError::Full, AdapterError::IndexFull},
        std::pair{StoreError::ReadOnly, AdapterError::IndexReadOnly},
        std::pair{StoreError::Permission, AdapterError::IndexPermission},
        std::pair{StoreError::Damaged, AdapterError::IndexDamaged},
        std::pair{StoreError::TooNew, AdapterError::IndexTooNew},
        std::pair{StoreError::InputOutput, AdapterError::IndexFailed},
        std::pair{StoreError::Internal, AdapterError::IndexFailed},
        std::pair{StoreError::OutOfMemory, AdapterError::OutOfMemory}}) {
    bench_.store->failAll(fault);
    for (const Answer& answer : {quarantineIt(), archiveIt()}) {
      EXPECT_NE(answer.result, 0);
      EXPECT_EQ(answer.error, error);
      EXPECT_EQ(answer.path, "");
    }
    EXPECT_EQ(adapter_.lastFault(), "the index is told to fail");
    EXPECT_EQ(filesBelow(bench_.folder), Files{});
  }
  bench_.store->recover();
  EXPECT_TRUE(quarantineIt().ok());
}

TEST_F(Filing, LeavesNoRowWhenTheIndexFailedOnlyBehindItsCommit) {
  using Moment = testing_host::FailingStore::Moment;
  bench_.store->failCall(1, Moment::Behind);
  EXPECT_EQ(quarantineIt().error, AdapterError::IndexUnavailable);
  EXPECT_TRUE(bench_.store->fired());
  EXPECT_EQ(filesBelow(bench_.folder), Files{});
  EXPECT_TRUE(bench_.rows().empty());
}

TEST_F(Filing, RemovesACopyWithItsRow) {
  ASSERT_TRUE(quarantineIt().ok());
  ASSERT_TRUE(quarantineIt().ok());
  const auto rows = bench_.rows();
  std::string fault;
  EXPECT_EQ(bench_.state.filing()->remove(rows[0], fault), AdapterError::None);
  EXPECT_EQ(filesBelow(bench_.folder), Files{"a/b/abc123~2.DF"});
  EXPECT_EQ(bench_.rows().size(), 1u);
  EXPECT_EQ(bench_.state.filing()->remove(rows[0], fault), AdapterError::None) << "gone is gone";
  std::filesystem::rename(bench_.folder, bench_.temp / "elsewhere");
  EXPECT_EQ(bench_.state.filing()->remove(rows[1], fault), AdapterError::MissingFolder);
  EXPECT_EQ(bench_.rows().size(), 1u) << "its disk may not be mounted";
  std::filesystem::rename(bench_.temp / "elsewhere", bench_.folder);
  std::filesystem::remove(rows[1].path);
  EXPECT_EQ(bench_.state.filing()->remove(rows[1], fault), AdapterError::None);
  EXPECT_TRUE(bench_.rows().empty());
}

TEST_F(Filing, KeepsTheRowOfACopyThatCannotBeRemoved) {
  ASSERT_TRUE(quarantineIt().ok());
  const auto row = bench_.rows()[0];
  std::string fault;
  bench_.ops.failAll("openFolder", EACCES);
  EXPECT_EQ(bench_.state.filing()->remove(row, fault), AdapterError::Permission);
  EXPECT_EQ(bench_.rows().size(), 1u);
  bench_.ops.failAll("", 0);
  bench_.store->failAll(host::store::StoreError::Busy);
  EXPECT_EQ(bench_.state.filing()->remove(row, fault), AdapterError::IndexBusy);
  EXPECT_EQ(fault, "the index is told to fail");
}

TEST_F(Filing, LetsTheStateForgetOldEffectsOnly) {
  const std::int64_t now = host::delivery::MessageEffects::systemClock();
  constexpr std::int64_t kDay = 86'400;
  for (const std::int64_t age : {29 * kDay, 31 * kDay}) {
    host::store::EffectKey key;
    key.effect.fill(static_cast<unsigned char>(age / kDay));
    host::store::EffectAnswer answer;
    ASSERT_TRUE(bench_.store->beginEffect(key, {"a", now - age, 60, {}}, answer).ok());
  }
  std::size_t dropped = 0;
  std::string fault;
  EXPECT_EQ(bench_.state.forgetOldEffects(dropped, fault), AdapterError::None);
  EXPECT_EQ(dropped, 1u);
  EXPECT_EQ(bench_.store->memory().effectCount(), 1u);
  bench_.store->failAll(host::store::StoreError::Busy);
  EXPECT_EQ(bench_.state.forgetOldEffects(dropped, fault), AdapterError::IndexBusy);
  EXPECT_EQ(fault, "the index is told to fail");
}

TEST_F(Filing, FailsWithoutAnOpenState) {
  host::delivery::DeliveryState closed;
  LocalAdapter adapter(closed);
  EXPECT_EQ(quarantine(adapter, bench_.message, bench_.folder).error, AdapterError::MissingFolder);
  EXPECT_EQ(archive(adapter, bench_.message, bench_.folder, "x").error,
            AdapterError::MissingFolder);
}

// What the system itself refuses, on the real store.

struct RealAnswer {
  AdapterError error;
  bool clean;  ///< no file is there that was not there before
};

int asExitStatus(const Answer& answer, const std::string& folder) {
  const bool empty = !std::filesystem::exists(folder) || filesBelow(folder).empty();
  return answer.result == 0 || !empty ? 1 : static_cast<int>(answer.error);
}

int quarantineAsNobody(const TempFolder& temp, const std::string& folder) {
  return inChild([&] {
    if (!testing_host::becomeUnprivileged()) return kNotPermitted;
    host::delivery::DeliveryState state;
    if (state.open(temp / "open/state") != AdapterError::None) return 2;
    LocalAdapter adapter(state);
    testing_host::PlainMessage message;
    const Answer answer = quarantine(adapter, message, folder);
    return answer.result == 0 ? 0 : static_cast<int>(answer.error);
  });
}

TEST(FilingLimits, TellsAnUnreadableAndAReadOnlyFolderApartFromAGoodOne) {
  const TempFolder temp;
  std::filesystem::create_directory(temp / "open");
  ::chmod(temp.path().c_str(), 0755);
  ::chmod((temp / "open").c_str(), 0777);
  const auto with = [&](mode_t mode) {
    const std::string folder = temp / std::to_string(mode);
    std::filesystem::create_directory(folder);
    ::chmod(folder.c_str(), mode);
    const int result = quarantineAsNobody(temp, folder);
    if (mode != 0777) {
      EXPECT_TRUE(std::filesystem::is_empty(folder));
    }
    return result;
  };
  EXPECT_EQ(with(0777), 0);
  EXPECT_EQ(with(0700), static_cast<int>(AdapterError::Permission)) << "unreadable";
  EXPECT_EQ(with(0755), static_cast<int>(AdapterError::Permission)) << "not writable";
  EXPECT_EQ(with(0766), static_cast<int>(AdapterError::Permission)) << "not to be entered";
}

TEST(FilingLimits, SaysThatTheDiskIsFullAndLeavesNothing) {
  const TempFolder temp;
  std::filesystem::create_directory(temp / "disk");
  const int result = inChild([&] {
    if (!testing_host::mountSmallDisk((temp / "disk").c_str(), "size=64k")) return kNotPermitted;
    host::delivery::DeliveryState state;
    if (state.open(temp / "state") != AdapterError::None) return 2;
    LocalAdapter adapter(state);
    testing_host::PlainMessage message(std::string(200'000, 'x'));
    return asExitStatus(quarantine(adapter, message, temp / "disk"), temp / "disk");
  });
  if (result == kNotPermitted) GTEST_SKIP() << "this system lets nobody mount a disk";
  EXPECT_EQ(result, static_cast<int>(AdapterError::DiskFull));
}

TEST(FilingLimits, SaysThatTheDiskIsReadOnly) {
  const TempFolder temp;
  std::filesystem::create_directory(temp / "disk");
  const int result = inChild([&] {
    if (!testing_host::mountSmallDisk((temp / "disk").c_str(), "size=64k,ro")) {
      return kNotPermitted;
    }
    host::delivery::DeliveryState state;
    if (state.open(temp / "state") != AdapterError::None) return 2;
    LocalAdapter adapter(state);
    testing_host::PlainMessage message;
    return asExitStatus(quarantine(adapter, message, temp / "disk"), temp / "disk");
  });
  if (result == kNotPermitted) GTEST_SKIP() << "this system lets nobody mount a disk";
  EXPECT_EQ(result, static_cast<int>(AdapterError::ReadOnly));
}

TEST(FilingLimits, SaysThatTheIndexIsDownAndLeavesNothing) {
  const TempFolder temp;
  std::filesystem::create_directory(temp / "q");
  host::delivery::DeliveryState state;
  ASSERT_EQ(state.open(temp / "state"), AdapterError::None);
  std::filesystem::create_directory(temp / "state/store.sqlite");
  LocalAdapter adapter(state);
  testing_host::PlainMessage message;
  EXPECT_EQ(quarantine(adapter, message, temp / "q").error, AdapterError::IndexUnavailable);
  EXPECT_THAT(adapter.lastFault(), ::testing::HasSubstr(temp / "state/store.sqlite"));
  EXPECT_EQ(filesBelow(temp / "q"), Files{});
  std::filesystem::remove(temp / "state/store.sqlite");
  EXPECT_TRUE(quarantine(adapter, message, temp / "q").ok()) << "back by itself";
}

}  // namespace
