// What the system itself refuses to a writer, on real folders and a real store.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/unit/host/core/child.h"
#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::LocalAdapter;
using testing_host::Answer;
using testing_host::filesBelow;
using testing_host::inChild;
using testing_host::kNotPermitted;
using testing_host::quarantine;
using testing_host::TempFolder;
using Files = std::vector<std::string>;

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
