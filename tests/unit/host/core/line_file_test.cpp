#include "host/core/line_file.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "tests/unit/host/core/failing_ops.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using host::core::appendLine;
using host::core::Durability;
using host::core::FileError;
using host::core::Folder;
using testing_host::contentOf;
using testing_host::TempFolder;

TEST(LineFile, AppendsLines) {
  const TempFolder temp;
  Folder folder;
  ASSERT_EQ(folder.open(temp.path(), false), FileError::None);
  EXPECT_EQ(appendLine(folder, "log", "one", Durability::Flushed), FileError::None);
  EXPECT_EQ(appendLine(folder, "log", "", Durability::Buffered), FileError::None);
  EXPECT_EQ(appendLine(folder, "log", "two", Durability::Flushed), FileError::None);
  EXPECT_EQ(contentOf(temp / "log"), "one\n\ntwo\n");
}

TEST(LineFile, EndsALineThatACrashLeft) {
  const TempFolder temp;
  Folder folder;
  ASSERT_EQ(folder.open(temp.path(), false), FileError::None);
  testing_host::writeFile(temp / "log", "one\nhal");
  EXPECT_EQ(appendLine(folder, "log", "two", Durability::Flushed), FileError::None);
  EXPECT_EQ(contentOf(temp / "log"), "one\nhal\ntwo\n");
}

TEST(LineFile, StaysAsItWasWhereverItFails) {
  const TempFolder temp;
  testing_host::FailingOps ops;
  Folder folder(ops);
  ASSERT_EQ(folder.open(temp.path(), false), FileError::None);
  testing_host::writeFile(temp / "log", "one\n");
  for (unsigned int call = 1;; ++call) {
    ops.failCall(call, EIO);
    const FileError error = appendLine(folder, "log", "two", Durability::Flushed);
    if (!ops.fired()) {
      EXPECT_EQ(error, FileError::None);
      EXPECT_EQ(call, 5u);  // behind open, lock, write, flush
      break;
    }
    EXPECT_EQ(error, FileError::InputOutput) << call;
    EXPECT_EQ(contentOf(temp / "log"), "one\n") << call;
  }
  EXPECT_EQ(contentOf(temp / "log"), "one\ntwo\n");
}

TEST(LineFile, MakesANewFileDurableInItsFolder) {
  const TempFolder temp;
  testing_host::FailingOps ops;
  Folder folder(ops);
  ASSERT_EQ(folder.open(temp.path(), false), FileError::None);
  ops.failCall(0, 0);
  ASSERT_EQ(appendLine(folder, "log", "one", Durability::Flushed), FileError::None);
  EXPECT_EQ(ops.calls(), (std::vector<std::string>{"openFile", "lock", "write", "sync", "sync"}));
}

TEST(LineFile, RefusesALink) {
  const TempFolder temp;
  testing_host::writeFile(temp / "elsewhere", "");
  ASSERT_EQ(::symlink("elsewhere", (temp / "log").c_str()), 0);
  Folder folder;
  ASSERT_EQ(folder.open(temp.path(), false), FileError::None);
  EXPECT_NE(appendLine(folder, "log", "one", Durability::Flushed), FileError::None);
  EXPECT_EQ(contentOf(temp / "elsewhere"), "");
}

TEST(LineFile, KeepsLinesOfManyWritersWhole) {
  const TempFolder temp;
  Folder folder;
  ASSERT_EQ(folder.open(temp.path(), false), FileError::None);
  constexpr int kLines = 200;
  std::vector<std::thread> threads;
  for (char writer = 'a'; writer < 'i'; ++writer) {
    threads.emplace_back([&folder, writer] {
      const std::string line(5000, writer);
      for (int each = 0; each < kLines; ++each) {
        EXPECT_EQ(appendLine(folder, "log", line, Durability::Buffered), FileError::None);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::map<std::string, int> counts;
  std::istringstream text(contentOf(temp / "log"));
  for (std::string line; std::getline(text, line);) ++counts[line];
  EXPECT_EQ(counts.size(), 8u);
  for (const auto& [line, count] : counts) {
    EXPECT_EQ(line, std::string(5000, line[0]));
    EXPECT_EQ(count, kLines);
  }
}

}  // namespace
