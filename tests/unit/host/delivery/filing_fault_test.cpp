// Lets the n-th allocation of filing fail: nothing is thrown, and where success was not reported no
// copy stays, and no row.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/fakes/fault_plan.h"
#include "tests/unit/host/delivery/filing_bench.h"

namespace {

using host::delivery::AdapterError;
using host::delivery::FinalAnswer;
using host::delivery::LocalAdapter;
using testing_host::filesBelow;
using testing_host::FilingBench;
using testing_host::Tokens;

constexpr unsigned int kMostAllocations = 10'000;

class FilingFault : public ::testing::TestWithParam<bool> {
 protected:
  FilingFault() {
    tokens_.set(Kavi::ScanToken::RuleId, "15");
    tokens_.set(Kavi::ScanToken::ArchiveAreaName, kArea);
    bench_.message.setId(kId);
    // What is kept for the life of the process is made here.
    EXPECT_EQ(attempt(), AdapterError::None);
  }

  // A first and only attempt of the engine. The paths are longer than a short text has room for.
  AdapterError attempt() {
    LocalAdapter adapter(bench_.state);
    unsigned int error = 0;
    auto outcome = adapter.beginMessage(bench_.message, bench_.message.bytes(), tokens_);
    if (outcome == AdapterError::None) outcome = adapter.beginAction(15, 0, kSetting);
    if (outcome == AdapterError::None) {
      if (GetParam()) {
        char path[kQuarantinePathSize];
        adapter.quarantineMessage(error, &bench_.message, "", bench_.folder.c_str(), path);
      } else {
        char area[kArchiveAreaNameSize] = {};
        kArea.copy(area, sizeof area - 1);
        adapter.archiveMessage(error, &bench_.message, "", bench_.folder.c_str(), area);
      }
      outcome = static_cast<AdapterError>(error);
    }
    adapter.finalAnswer(FinalAnswer::Accepted);
    return outcome;
  }

  void clear() {
    for (const auto& row : bench_.rows()) {
      ASSERT_TRUE(bench_.store->memory().removeEntry(row.row).ok());
      std::filesystem::remove(row.path);
    }
  }

  static inline const std::string kArea = "an area with a name longer than a short text";
  static inline const std::string kId = "0123456789abcdef0123456789abcdef";
  static inline const std::string kSetting = "a setting that is longer than a short text";

  FilingBench bench_;
  Tokens tokens_;
};

TEST_P(FilingFault, LeavesNothingWhereverMemoryRunsOut) {
  for (unsigned int call = 1; call < kMostAllocations; ++call) {
    clear();
    bench_.ops.failCall(0, 0);  // drops the list of calls, which would grow
    bench_.store->failCall(0);
    AdapterError error = AdapterError::None;
    bool fired = false;
    {
      const fakes::FaultPlan plan(fakes::FaultKind::Allocation, call);
      EXPECT_NO_THROW(error = attempt()) << call;
      fired = plan.fired();
    }
    const auto rows = bench_.rows();
    if (error != AdapterError::None) {
      EXPECT_EQ(error, AdapterError::OutOfMemory) << call;
      EXPECT_EQ(filesBelow(bench_.folder).size(), 0u) << call;
      EXPECT_TRUE(rows.empty()) << call;
    } else {
      EXPECT_EQ(filesBelow(bench_.folder).size(), 1u) << call;
      EXPECT_EQ(rows.size(), 1u) << call;
    }
    if (!fired) {
      EXPECT_EQ(error, AdapterError::None);
      EXPECT_GT(call, 20u) << "the operation allocated next to nothing";
      return;
    }
  }
  FAIL() << "the operation never succeeded";
}

INSTANTIATE_TEST_SUITE_P(Both, FilingFault, ::testing::Bool(), [](const auto& which) {
  return std::string(which.param ? "Quarantine" : "Archive");
});

}  // namespace
