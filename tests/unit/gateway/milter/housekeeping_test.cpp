#include "gateway/milter/housekeeping.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <thread>

#include "host/core/log.h"
#include "tests/unit/host/core/temp_folder.h"

namespace {

using host::delivery::AdapterError;
using host::store::IndexEntry;

TEST(Housekeeping, RemovesWhatIsPastItsDaysAtOnceAndEndsWhenAsked) {
  const testing_host::TempFolder folder;
  host::delivery::DeliveryState state;
  ASSERT_EQ(state.open(folder / "state"), AdapterError::None);
  IndexEntry old;
  old.agingDays = 1;
  old.storedAt = std::time(nullptr) - 100'000;
  old.path = folder / "old.DF";
  IndexEntry young = old;
  young.storedAt = std::time(nullptr);
  young.path = folder / "young.DF";
  std::int64_t row = 0;
  for (const IndexEntry& entry : {old, young}) {
    testing_host::writeFile(entry.path, "Subject: x\n\n");
    ASSERT_TRUE(state.store()->addEntry(entry, nullptr, row).ok());
  }
  const host::delivery::DeliverySettings settings;
  host::core::ProcessLog log({.level = 0});
  {
    const std::jthread keeper([&](const std::stop_token& stop) {
      gateway::milter::keepHouse(state, settings, log, stop);
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::filesystem::exists(old.path) && std::chrono::steady_clock::now() < end) {
      std::this_thread::yield();
    }
  }
  EXPECT_FALSE(std::filesystem::exists(old.path));
  EXPECT_TRUE(std::filesystem::exists(young.path));
}

}  // namespace
