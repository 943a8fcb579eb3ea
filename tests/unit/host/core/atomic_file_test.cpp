#include "host/core/atomic_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <utime.h>

#include <cerrno>
#include <ctime>

#include "tests/unit/host/core/failing_ops.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using host::core::AtomicFile;
using host::core::Durability;
using host::core::FileError;
using host::core::Folder;
using testing_host::contentOf;
using testing_host::entryCount;
using testing_host::FailingOps;
using testing_host::TempFolder;
using testing_host::writeFile;

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

Folder opened(const std::string& path) {
  Folder folder;
  EXPECT_EQ(folder.open(path, false), FileError::None);
  return folder;
}

FileError writeWhole(const Folder& folder, const std::string& name, const std::string& content,
                     Durability durability = Durability::Flushed) {
  AtomicFile file(folder, durability);
  FileError error = file.create();
  if (error == FileError::None) error = file.write(content.data(), content.size());
  return error == FileError::None ? file.commit(name) : error;
}

TEST(AtomicFile, WritesAFileOfAnySize) {
  const TempFolder temp;
  const Folder folder = opened(temp.path());
  for (const std::size_t size : {0u, 1u, 65'535u, 65'536u, 65'537u, 1'000'000u}) {
    std::string content(size, 'x');
    for (std::size_t at = 0; at < size; ++at) content[at] = static_cast<char>(at * 31);
    const std::string name = "f" + std::to_string(size);
    ASSERT_EQ(writeWhole(folder, name, content), FileError::None);
    EXPECT_EQ(contentOf(temp / name), content);
    EXPECT_EQ(modeOf(temp / name), 0600u);
  }
  EXPECT_EQ(entryCount(temp.path()), 6u);
}

TEST(AtomicFile, WritesPiecesInOrder) {
  const TempFolder temp;
  const Folder folder = opened(temp.path());
  AtomicFile file(folder, Durability::Buffered);
  ASSERT_EQ(file.create(), FileError::None);
  std::string expected;
  for (std::size_t size : {1u, 40'000u, 40'000u, 200'000u, 0u, 3u}) {
    const std::string piece(size, static_cast<char>('a' + size % 26));
    ASSERT_EQ(file.write(piece.data(), piece.size()), FileError::None);
    expected += piece;
  }
  ASSERT_EQ(file.commit("f"), FileError::None);
  EXPECT_EQ(contentOf(temp / "f"), expected);
}

TEST(AtomicFile, LeavesNothingWithoutCommit) {
  const TempFolder temp;
  const Folder folder = opened(temp.path());
  {
    AtomicFile file(folder, Durability::Flushed);
    ASSERT_EQ(file.create(), FileError::None);
    ASSERT_EQ(file.write("x", 1), FileError::None);
    EXPECT_EQ(entryCount(temp.path()), 1u);
  }
  EXPECT_EQ(entryCount(temp.path()), 0u);
}

TEST(AtomicFile, NeverReplacesAFileAndCanTakeAnotherName) {
  const TempFolder temp;
  const Folder folder = opened(temp.path());
  writeFile(temp / "a", "old");
  AtomicFile file(folder, Durability::Flushed);
  ASSERT_EQ(file.create(), FileError::None);
  ASSERT_EQ(file.write("new", 3), FileError::None);
  EXPECT_EQ(file.commit("a"), FileError::Exists);
  EXPECT_EQ(contentOf(temp / "a"), "old");
  EXPECT_EQ(file.commit("b"), FileError::None);
  EXPECT_EQ(contentOf(temp / "b"), "new");
  EXPECT_EQ(entryCount(temp.path()), 2u);
}

TEST(AtomicFile, FlushesTheFileBeforeTheRenameAndTheFolderBehindIt) {
  const TempFolder temp;
  FailingOps ops;
  Folder folder(ops);
  ASSERT_EQ(folder.open(temp.path(), false), FileError::None);
  ops.failCall(0, 0);
  ASSERT_EQ(writeWhole(folder, "f", "content"), FileError::None);
  EXPECT_EQ(ops.calls(),
            (std::vector<std::string>{"openFile", "lock", "write", "sync", "rename", "sync"}));
}

TEST(AtomicFile, LeavesNothingWhereverItFails) {
  const TempFolder temp;
  FailingOps ops;
  Folder folder(ops);
  ASSERT_EQ(folder.open(temp.path(), false), FileError::None);
  for (unsigned int call = 1;; ++call) {
    ops.failCall(call, ENOSPC);
    const FileError error = writeWhole(folder, "f", std::string(100'000, 'x'));
    if (!ops.fired()) {
      EXPECT_EQ(error, FileError::None);
      EXPECT_EQ(call, 7u);  // behind open, lock, write, flush, rename, flush
      break;
    }
    EXPECT_EQ(error, FileError::DiskFull) << call;
    EXPECT_EQ(entryCount(temp.path()), 0u) << call;
  }
  EXPECT_EQ(entryCount(temp.path()), 1u);
}

TEST(AtomicFile, AnswersItsFirstErrorFromThenOn) {
  const TempFolder temp;
  FailingOps ops;
  Folder folder(ops);
  ASSERT_EQ(folder.open(temp.path(), false), FileError::None);
  AtomicFile file(folder, Durability::Flushed);
  ASSERT_EQ(file.create(), FileError::None);
  ops.failAll("write", EDQUOT);
  const std::string big(200'000, 'x');
  EXPECT_EQ(file.write(big.data(), big.size()), FileError::DiskFull);
  ops.failAll("", 0);
  EXPECT_EQ(file.write("x", 1), FileError::DiskFull);
  EXPECT_EQ(file.commit("f"), FileError::DiskFull);
}

TEST(FileErrors, TellCausesApart) {
  const TempFolder temp;
  const struct {
    int errnoValue;
    FileError error;
  } table[] = {{ENOSPC, FileError::DiskFull},      {EDQUOT, FileError::DiskFull},
               {EFBIG, FileError::DiskFull},       {EROFS, FileError::ReadOnly},
               {ENOENT, FileError::MissingFolder}, {ENOTDIR, FileError::MissingFolder},
               {EACCES, FileError::Permission},    {EPERM, FileError::Permission},
               {EEXIST, FileError::Exists},        {ENAMETOOLONG, FileError::NameTooLong},
               {EMFILE, FileError::TooManyFiles},  {ENFILE, FileError::TooManyFiles},
               {EIO, FileError::InputOutput},      {EINVAL, FileError::InputOutput}};
  for (const auto& row : table) {
    FailingOps ops;
    Folder folder(ops);
    ASSERT_EQ(folder.open(temp.path(), false), FileError::None);
    ops.failAll("openFile", row.errnoValue);
    EXPECT_EQ(writeWhole(folder, "f", "x"), row.error) << row.errnoValue;
    EXPECT_STRNE(host::core::fileErrorText(row.error), "no error");
  }
  EXPECT_EQ(entryCount(temp.path()), 0u);
}

TEST(Folder, IsMadeWithEverythingAboveIt) {
  const TempFolder temp;
  Folder folder;
  EXPECT_EQ(folder.open(temp / "a/b//c/", false), FileError::MissingFolder);
  ASSERT_EQ(folder.open(temp / "a/b//c/", true), FileError::None);
  EXPECT_EQ(modeOf(temp / "a"), 0700u);
  EXPECT_EQ(modeOf(temp / "a/b/c"), 0700u);
  ASSERT_EQ(folder.open(temp / "a/b/c", true), FileError::None);
  writeFile(temp / "file", "");
  EXPECT_EQ(folder.open(temp / "file", true), FileError::MissingFolder);
  EXPECT_EQ(folder.open(temp / "file/below", true), FileError::MissingFolder);
  EXPECT_EQ(folder.open("", true), FileError::MissingFolder);
}

TEST(Folder, RefusesALinkUnderItsName) {
  const TempFolder temp;
  const TempFolder elsewhere;
  ASSERT_EQ(::symlink(elsewhere.path().c_str(), (temp / "inner").c_str()), 0);
  const Folder outer = opened(temp.path());
  Folder inner;
  EXPECT_NE(inner.openIn(outer, "inner"), FileError::None);
  EXPECT_EQ(inner.openIn(outer, "other"), FileError::None);
  EXPECT_EQ(modeOf(temp / "other"), 0700u);
}

TEST(Folder, ListsReadsAndRemoves) {
  const TempFolder temp;
  const Folder folder = opened(temp.path());
  writeFile(temp / "b", "two");
  writeFile(temp / "a", "one");
  for (int round = 0; round < 2; ++round) {
    std::vector<std::string> names{"old"};
    ASSERT_EQ(folder.list(names), FileError::None);
    EXPECT_EQ(names, (std::vector<std::string>{"a", "b"}));
  }
  std::string bytes = "before";
  EXPECT_EQ(folder.read("b", 3, bytes), FileError::None);
  EXPECT_EQ(bytes, "two");
  EXPECT_EQ(folder.read("b", 2, bytes), FileError::InputOutput);
  EXPECT_EQ(folder.read("missing", 100, bytes), FileError::MissingFolder);
  EXPECT_EQ(folder.read(".", 100, bytes), FileError::InputOutput);
  EXPECT_EQ(folder.remove("a"), FileError::None);
  EXPECT_EQ(folder.remove("a"), FileError::MissingFolder);
  EXPECT_EQ(entryCount(temp.path()), 1u);
}

TEST(SweepTemporaries, RemovesOnlyWhatNobodyWrites) {
  const TempFolder temp;
  const Folder folder = opened(temp.path());
  AtomicFile writing(folder, Durability::Flushed);
  ASSERT_EQ(writing.create(), FileError::None);
  const utimbuf old{std::time(nullptr) - 3600, std::time(nullptr) - 3600};
  std::vector<std::string> names;
  ASSERT_EQ(folder.list(names), FileError::None);
  ASSERT_EQ(names.size(), 1u);
  ASSERT_TRUE(host::core::isTemporaryName(names[0]));
  ASSERT_EQ(::utime((temp / names[0]).c_str(), &old), 0);
  for (const char* name : {"message.msg", ".tmp-old", ".tmp-young"}) writeFile(temp / name, "x");
  for (const char* name : {"message.msg", ".tmp-old"}) {
    ASSERT_EQ(::utime((temp / name).c_str(), &old), 0);
  }
  std::size_t removed = 0;
  ASSERT_EQ(host::core::sweepTemporaries(folder, removed), FileError::None);
  EXPECT_EQ(removed, 1u);
  ASSERT_EQ(folder.list(names), FileError::None);
  EXPECT_EQ(std::count(names.begin(), names.end(), ".tmp-old"), 0);
  EXPECT_EQ(names.size(), 3u);
  EXPECT_EQ(writing.commit("late"), FileError::None);
}

}  // namespace
