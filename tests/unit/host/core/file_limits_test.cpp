// Files where the system itself says no: a full disk, a read-only one, a foreign folder.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/core/atomic_file.h"
#include "host/core/line_file.h"
#include "tests/unit/host/core/child.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using host::core::AtomicFile;
using host::core::Durability;
using host::core::FileError;
using host::core::Folder;
using testing_host::entryCount;
using testing_host::inChild;
using testing_host::kNotPermitted;
using testing_host::TempFolder;

FileError writeBytes(const std::string& path, std::size_t size) {
  Folder folder;
  FileError error = folder.open(path, false);
  if (error != FileError::None) return error;
  AtomicFile file(folder, Durability::Flushed);
  error = file.create();
  const std::string content(size, 'x');
  if (error == FileError::None) error = file.write(content.data(), content.size());
  return error == FileError::None ? file.commit("f") : error;
}

TEST(FileLimits, AFileSizeLimitCountsAsAFullDisk) {
  const TempFolder temp;
  EXPECT_EQ(inChild([&] {
              if (!testing_host::limitFileSize(10'000)) return 1;
              if (writeBytes(temp.path(), 100'000) != FileError::DiskFull) return 2;
              if (writeBytes(temp.path(), 10'001) != FileError::DiskFull) return 3;
              return writeBytes(temp.path(), 10'000) == FileError::None ? 0 : 4;
            }),
            0);
  EXPECT_EQ(entryCount(temp.path()), 1u);
}

TEST(FileLimits, ALineThatDoesNotFitLeavesTheFileAsItWas) {
  const TempFolder temp;
  EXPECT_EQ(inChild([&] {
              if (!testing_host::limitFileSize(100)) return 1;
              Folder folder;
              if (folder.open(temp.path(), false) != FileError::None) return 2;
              const std::string line(79, 'x');
              if (appendLine(folder, "log", line, Durability::Flushed) != FileError::None) return 3;
              if (appendLine(folder, "log", line, Durability::Flushed) != FileError::DiskFull) {
                return 4;
              }
              return appendLine(folder, "log", "short", Durability::Flushed) == FileError::None ? 0
                                                                                                : 5;
            }),
            0);
  EXPECT_EQ(testing_host::contentOf(temp / "log"), std::string(79, 'x') + "\nshort\n");
}

TEST(FileLimits, AFullDiskIsToldApart) {
  const TempFolder temp;
  const int result = inChild([&] {
    if (!testing_host::mountSmallDisk(temp.path().c_str(), "size=64k")) return kNotPermitted;
    if (writeBytes(temp.path(), 1'000'000) != FileError::DiskFull) return 1;
    if (entryCount(temp.path()) != 0) return 2;
    return writeBytes(temp.path(), 10'000) == FileError::None ? 0 : 3;
  });
  if (result == kNotPermitted) GTEST_SKIP() << "mounting is not permitted here";
  EXPECT_EQ(result, 0);
}

TEST(FileLimits, AReadOnlyDiskIsToldApart) {
  const TempFolder temp;
  const int result = inChild([&] {
    const char* path = temp.path().c_str();
    if (!testing_host::mountSmallDisk(path, "size=64k")) return kNotPermitted;
    if (::mount("none", path, nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) return kNotPermitted;
    Folder folder;
    if (folder.open(temp / "new", true) != FileError::ReadOnly) return 1;
    return writeBytes(temp.path(), 10) == FileError::ReadOnly ? 0 : 2;
  });
  if (result == kNotPermitted) GTEST_SKIP() << "mounting is not permitted here";
  EXPECT_EQ(result, 0);
}

TEST(FileLimits, AForeignFolderIsToldApart) {
  const TempFolder temp;
  ASSERT_EQ(::chmod(temp.path().c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((temp / "closed").c_str(), 0755), 0);
  ASSERT_EQ(::chmod((temp / "closed").c_str(), 0555), 0);
  EXPECT_EQ(inChild([&] {
              if (!testing_host::becomeUnprivileged()) return 1;
              if (writeBytes(temp / "closed", 10) != FileError::Permission) return 2;
              Folder folder;
              if (folder.open(temp / "closed/new", true) != FileError::Permission) return 3;
              return writeBytes(temp / "missing", 10) == FileError::MissingFolder ? 0 : 4;
            }),
            0);
  EXPECT_EQ(entryCount(temp / "closed"), 0u);
}

TEST(FileLimits, TooManyOpenFilesAreToldApart) {
  const TempFolder temp;
  EXPECT_EQ(inChild([&] {
              Folder folder;
              if (folder.open(temp.path(), false) != FileError::None) return 1;
              const rlimit none{0, 0};
              if (::setrlimit(RLIMIT_NOFILE, &none) != 0) return 2;
              AtomicFile file(folder, Durability::Flushed);
              return file.create() == FileError::TooManyFiles ? 0 : 3;
            }),
            0);
}

}  // namespace
