// Lets the n-th allocation of filing fail: nothing is thrown, and where success was not reported no
// copy stays, and no row.
#include <gtest/gtest.h>

#include <cstdint>
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

enum class Way { Quarantine, Archive, Postpone };

class FilingFault : public ::testing::TestWithParam<Way> {
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
      if (GetParam() == Way::Postpone) {
        adapter.postponeMessage(error, &bench_.message, 8, 30, 23, 59);
      } else if (GetParam() == Way::Quarantine) {
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
    // A sender that tries again finds a message postponed, though it is sent since.
    std::size_t dropped = 0;
    ASSERT_TRUE(bench_.store->memory().forgetBefore(INT64_MAX, dropped).ok());
  }

  std::size_t files() const {
    return filesBelow(GetParam() == Way::Postpone ? bench_.temp / "state/spool" : bench_.folder)
        .size();
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
      EXPECT_EQ(files(), 0u) << call;
      EXPECT_TRUE(rows.empty()) << call;
    } else {
      EXPECT_EQ(files(), 1u) << call;
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

std::string nameOf(const ::testing::TestParamInfo<Way>& way) {
  constexpr const char* kNames[] = {"Quarantine", "Archive", "Postpone"};
  return kNames[static_cast<int>(way.param)];
}

INSTANTIATE_TEST_SUITE_P(All, FilingFault,
                         ::testing::Values(Way::Quarantine, Way::Archive, Way::Postpone), nameOf);

}  // namespace
