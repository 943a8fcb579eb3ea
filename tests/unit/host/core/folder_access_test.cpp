// What can be known of a folder without making it.
#include "host/core/folder_access.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using host::core::FileError;
using host::core::folderAbove;
using host::core::mayKeepFiles;

TEST(FolderAbove, GoesByTheText) {
  const struct {
    const char* path;
    const char* above;
  } cases[] = {{"/a/b", "/a"}, {"/a//b//", "/a/"}, {"/a", "/"},  {"/", "/"},
               {"//", "/"},    {"a", "."},         {"a/b", "a"}, {"", "."}};
  for (const auto& one : cases) EXPECT_EQ(folderAbove(one.path), one.above) << one.path;
}

TEST(MayKeepFiles, InAFolderOrInOneThatCouldBeMade) {
  const testing_host::TempFolder folder;
  EXPECT_EQ(mayKeepFiles(folder.path()), FileError::None);
  EXPECT_EQ(mayKeepFiles(folder / "a/b/c"), FileError::None);
  EXPECT_FALSE(std::filesystem::exists(folder / "a"));
}

TEST(MayKeepFiles, NotInAFileOrBelowOne) {
  const testing_host::TempFolder folder;
  testing_host::writeFile(folder / "file", "");
  EXPECT_EQ(mayKeepFiles(folder / "file"), FileError::MissingFolder);
  EXPECT_EQ(mayKeepFiles(folder / "file/a"), FileError::MissingFolder);
}

TEST(MayKeepFiles, NotWhereThisUserMayNotWrite) {
  const testing_host::TempFolder folder;
  ::chmod(folder.path().c_str(), 0555);
  const auto asked = [&](const std::string& path) {
    return testing_host::inChild([&] {
      return testing_host::becomeUnprivileged() ? static_cast<int>(mayKeepFiles(path)) : 99;
    });
  };
  EXPECT_EQ(asked(folder.path()), static_cast<int>(FileError::Permission));
  EXPECT_EQ(asked(folder / "new"), static_cast<int>(FileError::Permission));
  ::chmod(folder.path().c_str(), 0755);
}

}  // namespace
